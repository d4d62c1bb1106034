#include "ExportLines.h"

#include "engine/FileWriting.h"

#include <QFileDevice>
#include <QSaveFile>

#include <algorithm>

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

std::vector<ExportField> exportFields(bool inFolderOffered) {
    std::vector<ExportField> fields;
    for (int number = 0; number <= ExportField::LastCustomField; ++number) {
        if (number == engine::InFolderColumn && !inFolderOffered)
            continue;
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
      m_quote(m_choices.quotes ? QByteArray("\"") : QByteArray()) {
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
        m_written.push_back({numeric ? int(engine::AttributesKeyColumn) : field.number, {}});
    }
    if (list.snapshot && list.rows)
        m_cells = std::make_unique<CellWriter>(*list.snapshot, *list.rows);
    for (const char c : m_separator + QByteArray("\"\r\n"))
        m_forcesQuotes[uint8_t(c)] = true;
}

void ExportLines::appendLine(int32_t row, LineBuffer& out) {
    if (m_cells)
        m_cells->prefetch(row);
    bool first = true;
    for (const Written& field : m_written) {
        if (!first)
            out.append(m_separator);
        first = false;
        if (field.column < 0) {
            out.append(field.text);
            continue;
        }
        const size_t opening = out.size();
        out.append(m_quote);
        const size_t start = out.size();
        m_cells->append(row, field.column, out);
        // Written without its leading blanks (Version's text starts with one).
        size_t blanks = 0;
        while (start + blanks < out.size() && out.at(start + blanks) == ' ')
            ++blanks;
        if (blanks > 0)
            out.erase(start, blanks);
        bool forced = false;
        for (size_t i = start; i < out.size() && !forced; ++i)
            forced = m_forcesQuotes[uint8_t(out.at(i))];
        if (forced)
            quoteValue(out, opening, start);
        else
            out.append(m_quote);
    }
}

void ExportLines::quoteValue(LineBuffer& out, size_t opening, size_t start) {
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

bool writeExportLines(ExportLines& lines, QIODevice& device) {
    // A file starts going to the disk while the rest is made.
    auto* file = qobject_cast<QFileDevice*>(&device);
    qint64 startedOut = 0;
    LineBuffer block;
    const int32_t rows = lines.rowCount();
    for (int32_t row = 0; row < rows; ++row) {
        lines.appendLine(row, block);
        block.append(std::string_view(LineEnd));
        if (block.size() >= WriteBlock || row + 1 == rows) {
            if (!engine::writeWhole(device, block.data(), qint64(block.size())))
                return false;
            block.clear();
            if (file)
                engine::startWriteBack(*file, startedOut);
        }
    }
    return true;
}

Outcome writeExportFile(const QString& path, ExportLines& lines) {
    QSaveFile file(path);
    const auto failure = [&file] {
        return Outcome::failure(
            UserMessage{WriteErrorTitle, file.errorString(), MessageIcon::Exclamation},
            engine::ErrorCode::SystemError);
    };
    if (!file.open(QIODevice::WriteOnly))
        return failure();
    // The temporary file goes when writing fails; the old file stays.
    if (!writeExportLines(lines, file))
        return failure();
    if (!file.commit())
        return failure();
    return Outcome::success();
}

} // namespace kestrel::output
