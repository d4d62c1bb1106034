#include "ExportLines.h"

#include "engine/file/FileWriting.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

namespace kestrel::output {

using engine::MessageIcon;
using engine::Outcome;
using engine::UserMessage;

namespace {

// The export shares the snapshot writer's title for its failures.
const QString WriteErrorTitle = QStringLiteral("Error Writing Snapshot");
// Lines are gathered into blocks of about this size before they are written.
constexpr size_t WriteBlock = 1 << 20;

QString fieldText(int column) {
    return QLatin1Char('[') + engine::gridHeaderText(column).trimmed() + QLatin1Char(']');
}

} // namespace

std::vector<ExportField> exportFields(bool inFolderOffered, bool accessOffered,
                                      bool fingerprintsOffered) {
    std::vector<ExportField> fields;
    for (int number = 0; number <= ExportField::LastCustomField; ++number) {
        if (number == engine::InFolderColumn && !inFolderOffered)
            continue;
        if (number == ExportField::FirstCustomField && accessOffered) {
            fields.push_back(
                {ExportField::PermissionsField, fieldText(engine::PermissionsColumn), false});
            fields.push_back({ExportField::OwnerField, fieldText(engine::OwnerColumn), false});
        }
        if (number == ExportField::FirstCustomField && fingerprintsOffered)
            fields.push_back(
                {ExportField::FingerprintField, fieldText(engine::FingerprintColumn), false});
        if (number < ExportField::FirstCustomField)
            fields.push_back({number, fieldText(number), true});
        else
            fields.push_back({number, QStringLiteral("Custom"), false});
    }
    return fields;
}

int moveField(std::vector<ExportField>& fields, int index, int step) {
    const int target = index + step;
    if (index < 0 || index >= int(fields.size()) || target < 0 || target >= int(fields.size()))
        return index;
    ExportField moved = fields[size_t(index)];
    moved.checked = true;
    fields.erase(fields.begin() + index);
    fields.insert(fields.begin() + target, std::move(moved));
    return target;
}

bool anyFieldChecked(const std::vector<ExportField>& fields) {
    return std::any_of(fields.begin(), fields.end(),
                       [](const ExportField& f) { return f.checked; });
}

QStringList separatorNames() {
    return {QStringLiteral("(none)"), QStringLiteral("Comma"), QStringLiteral("Tab"),
            QStringLiteral("Space")};
}

QString separatorText(int position) {
    switch (position) {
    case 1:
        return QStringLiteral(",");
    case 2:
        return QStringLiteral("\t");
    case 3:
        return QStringLiteral(" ");
    default:
        return QString();
    }
}

ExportLines::ExportLines(const ShownList& list, std::vector<ExportField> fields,
                         ExportChoices choices)
    : m_list(list), m_fields(std::move(fields)), m_choices(std::move(choices)),
      m_separator(m_choices.separator.toUtf8()),
      m_quote(m_choices.quotes ? QByteArray("\"") : QByteArray()),
      m_forcing(m_separator + QByteArray("\"\r\n")) {
    // Only the checked entries count, each as the column it reads or the
    // text it writes.
    for (const ExportField& field : m_fields) {
        if (!field.checked)
            continue;
        if (field.isCustom()) {
            m_written.push_back({-1, field.text.toUtf8()});
            continue;
        }
        const bool numeric =
            field.number == engine::AttributesColumn && m_choices.numericAttributes;
        m_written.push_back({numeric ? int(engine::AttributesKeyColumn) : field.column(), {}});
    }
    for (const char c : m_forcing)
        m_forcesQuotes[uint8_t(c)] = true;
}

ExportLines::~ExportLines() = default;

ExportLines::Maker::Maker(const ExportLines& lines) : m_lines(lines) {
    const ShownList& list = lines.m_list;
    if (list.snapshot && list.rows)
        m_cells = std::make_unique<CellWriter>(
            *list.snapshot, *list.rows,
            std::string_view(lines.m_forcing.constData(), size_t(lines.m_forcing.size())));
}

ExportLines::Maker::~Maker() = default;

void ExportLines::Maker::appendLine(int32_t row, LineBuffer& out) {
    if (m_cells)
        m_cells->prefetch(row);
    bool first = true;
    const QByteArray& separator = m_lines.m_separator;
    const bool quoted = !m_lines.m_quote.isEmpty();
    for (const Written& field : m_lines.m_written) {
        if (!first) {
            if (separator.size() == 1)
                out.append(separator.front());
            else
                out.append(separator);
        }
        first = false;
        if (field.column < 0) {
            out.append(field.text);
            continue;
        }
        const size_t opening = out.size();
        if (quoted)
            out.append('"');
        const size_t start = out.size();
        // The writer tells whether the cell may need quotes; only then is
        // the value, less the blanks taken off, looked at.
        bool forced = m_cells->append(row, field.column, out);
        // Written without its leading blanks (Version's text starts with one).
        size_t blanks = 0;
        while (start + blanks < out.size() && out.at(start + blanks) == ' ')
            ++blanks;
        if (blanks > 0)
            out.erase(start, blanks);
        if (forced) {
            forced = false;
            for (size_t i = start; i < out.size() && !forced; ++i)
                forced = m_lines.m_forcesQuotes[uint8_t(out.at(i))];
        }
        if (forced)
            quoteValue(out, opening, start);
        else if (quoted)
            out.append('"');
    }
}

void ExportLines::Maker::quoteValue(LineBuffer& out, size_t opening, size_t start) {
    m_value.assign(out.data() + start, out.size() - start);
    out.truncate(opening);
    out.append('"');
    for (const char c : m_value) {
        if (c == '"')
            out.append('"');
        out.append(c);
    }
    out.append('"');
}

void ExportLines::appendLine(int32_t row, LineBuffer& out) {
    if (!m_maker)
        m_maker = std::make_unique<Maker>(*this);
    m_maker->appendLine(row, out);
}

QString ExportLines::line(int32_t row) {
    LineBuffer bytes;
    appendLine(row, bytes);
    return QString::fromUtf8(bytes.data(), qsizetype(bytes.size()));
}

QString ExportLines::preview() {
    LineBuffer text;
    const int32_t rows = std::min(rowCount(), PreviewRows);
    for (int32_t row = 0; row < rows; ++row) {
        appendLine(row, text);
        text.append(std::string_view(LineEnd));
    }
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

namespace {

// Writes the lines of a list, made block by block by a few threads, the
// calling one among them: each takes every n-th block, and the calling
// thread writes the blocks in order as they are ready, its own as soon as
// it has made them. A helper makes a block only once a slot for it is free,
// so the blocks in memory stay few whatever the list's length.
class ParallelLines {
public:
    ParallelLines(ExportLines& lines, int makers)
        : m_lines(lines), m_makers(makers),
          m_blocks((lines.rowCount() + BlockRows - 1) / BlockRows), m_slots(size_t(2 * makers)),
          m_made(size_t(2 * makers), -1) {}

    ~ParallelLines() { stopAndJoin(); }

    // Starts the helpers; false, with none left running, when the system
    // will not start them all.
    bool start() {
        try {
            for (int maker = 1; maker < m_makers; ++maker)
                m_running.emplace_back(&ParallelLines::help, this, maker);
        } catch (const std::system_error&) {
            stopAndJoin();
            return false;
        }
        return true;
    }

    // Makes the calling thread's blocks and writes all of them in order;
    // rethrows what a helper threw.
    bool writeTo(const std::function<bool(std::string_view)>& write) {
        LineBuffer own;
        bool ok = true;
        for (int32_t block = 0; block < m_blocks && ok; ++block) {
            const LineBuffer* text = &own;
            if (block % m_makers == 0) {
                makeBlock(m_lines, block, own);
            } else {
                const size_t slot = size_t(block) % m_slots.size();
                std::unique_lock lock(m_mutex);
                m_changed.wait(lock, [&] { return m_failure || m_made[slot] == block; });
                if (m_failure)
                    break;
                // The slot is this thread's until the written count passes it.
                text = &m_slots[slot];
            }
            ok = write(std::string_view(text->data(), text->size()));
            {
                const std::lock_guard lock(m_mutex);
                m_written = block + 1;
            }
            m_changed.notify_all();
        }
        stopAndJoin();
        if (m_failure)
            std::rethrow_exception(m_failure);
        return ok;
    }

private:
    static constexpr int32_t BlockRows = 8192;

    template <typename Maker> void makeBlock(Maker& maker, int32_t block, LineBuffer& text) {
        text.clear();
        const int32_t end = std::min(m_lines.rowCount(), (block + 1) * BlockRows);
        for (int32_t row = block * BlockRows; row < end; ++row) {
            maker.appendLine(row, text);
            text.append(std::string_view(LineEnd));
        }
    }

    void help(int maker) {
        try {
            ExportLines::Maker lines(m_lines);
            // Each helper makes its block in a buffer of its own, handed to
            // the slot when done: buffers written by two threads at once
            // would share their cache lines.
            LineBuffer text;
            for (int32_t block = maker; block < m_blocks; block += m_makers) {
                makeBlock(lines, block, text);
                const size_t slot = size_t(block) % m_slots.size();
                {
                    std::unique_lock lock(m_mutex);
                    m_changed.wait(lock, [&] {
                        return m_stop || block - m_written < int32_t(m_slots.size());
                    });
                    if (m_stop)
                        return;
                    // The slot's written buffer comes back for the next block.
                    std::swap(m_slots[slot], text);
                    m_made[slot] = block;
                }
                m_changed.notify_all();
            }
        } catch (...) {
            const std::lock_guard lock(m_mutex);
            if (!m_failure)
                m_failure = std::current_exception();
            m_stop = true;
            m_changed.notify_all();
        }
    }

    void stopAndJoin() {
        {
            const std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        m_changed.notify_all();
        for (std::thread& t : m_running)
            t.join();
        m_running.clear();
    }

    ExportLines& m_lines;
    const int m_makers;
    const int32_t m_blocks;
    std::vector<LineBuffer> m_slots;
    std::vector<int32_t> m_made; // the block each slot holds, made
    int32_t m_written = 0;       // the blocks written
    bool m_stop = false;
    std::exception_ptr m_failure;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::thread> m_running;
};

// Lists shorter than this are made on the calling thread alone.
constexpr int32_t ParallelRows = 65536;
// Threads that make lines at most, the calling one included: the memory,
// not the cores, sets the pace beyond this.
constexpr unsigned MostLineThreads = 4;

bool writeInOneThread(ExportLines& lines, const std::function<bool(std::string_view)>& write) {
    LineBuffer block;
    const int32_t rows = lines.rowCount();
    for (int32_t row = 0; row < rows; ++row) {
        lines.appendLine(row, block);
        block.append(std::string_view(LineEnd));
        if (block.size() >= WriteBlock || row + 1 == rows) {
            if (!write(std::string_view(block.data(), block.size())))
                return false;
            block.clear();
        }
    }
    return true;
}

} // namespace

bool writeExportLines(ExportLines& lines, const std::function<bool(std::string_view)>& write) {
    const unsigned cores = std::thread::hardware_concurrency();
    if (lines.rowCount() >= ParallelRows && cores > 1) {
        ParallelLines parallel(lines, int(std::min(cores, MostLineThreads)));
        // Without threads the lines are made here, as for a short list.
        if (parallel.start())
            return parallel.writeTo(write);
    }
    return writeInOneThread(lines, write);
}

bool writeExportLines(ExportLines& lines, QIODevice& device) {
    return writeExportLines(lines, [&device](std::string_view bytes) {
        return engine::writeWhole(device, bytes.data(), qint64(bytes.size()));
    });
}

Outcome writeExportFile(const QString& path, ExportLines& lines) {
    // No memory for a block of lines, or a helper thread that cannot start,
    // is told like a write error; the file that was there stays.
    return engine::guardedOperation(WriteErrorTitle, [&] {
        engine::AtomicFile file(path);
        const bool written =
            file.open() &&
            writeExportLines(lines,
                             [&file](std::string_view bytes) { return file.append(bytes); }) &&
            file.commit();
        if (!written)
            return Outcome::failure(
                UserMessage{WriteErrorTitle, file.errorText(), MessageIcon::Exclamation},
                engine::ErrorCode::SystemError);
        return Outcome::success();
    });
}

} // namespace kestrel::output
