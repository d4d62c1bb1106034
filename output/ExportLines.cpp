#include "ExportLines.h"

#include "engine/FileWriting.h"

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
        out.append(m_quote);
        const size_t start = out.size();
        m_cells->append(row, field.column, out);
        // Written without its leading blanks (Version's text starts with one).
        size_t blanks = 0;
        while (start + blanks < out.size() && out.at(start + blanks) == ' ')
            ++blanks;
        if (blanks > 0)
            out.erase(start, blanks);
        out.append(m_quote);
    }
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

bool writeExportLines(ExportLines& lines, const std::function<bool(std::string_view)>& write) {
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

bool writeExportLines(ExportLines& lines, QIODevice& device) {
    return writeExportLines(lines, [&device](std::string_view bytes) {
        return engine::writeWhole(device, bytes.data(), qint64(bytes.size()));
    });
}

Outcome writeExportFile(const QString& path, ExportLines& lines) {
    engine::AtomicFile file(path);
    const bool written =
        file.open() &&
        writeExportLines(lines, [&file](std::string_view bytes) { return file.append(bytes); }) &&
        file.commit();
    if (!written)
        return Outcome::failure(
            UserMessage{WriteErrorTitle, file.errorText(), MessageIcon::Exclamation},
            engine::ErrorCode::SystemError);
    return Outcome::success();
}

} // namespace kestrel::output
