#pragma once

#include "CellWriter.h"
#include "ShownList.h"

#include "engine/support/Errors.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QIODevice;

namespace kestrel::output {

// One entry of the export's field list. Its number is a column of the grid
// (Name 0 to Version 6), from 7 to 14 a custom field whose text is written
// as it stands, or 15 to 17 for the Permissions, Owner and Fingerprint
// columns.
struct ExportField {
    int number = 0;
    QString text; // "[Name]", "Custom" or the custom text entered
    bool checked = false;

    bool isCustom() const { return number >= FirstCustomField && number <= LastCustomField; }
    // The grid column a field that is not custom writes.
    int column() const {
        switch (number) {
        case PermissionsField:
            return engine::PermissionsColumn;
        case OwnerField:
            return engine::OwnerColumn;
        case FingerprintField:
            return engine::FingerprintColumn;
        default:
            return number;
        }
    }

    // The field number that writes a grid column: the inverse of column().
    static int numberOf(int column) {
        switch (column) {
        case engine::PermissionsColumn:
            return PermissionsField;
        case engine::OwnerColumn:
            return OwnerField;
        case engine::FingerprintColumn:
            return FingerprintField;
        default:
            return column;
        }
    }

    static constexpr int FirstCustomField = 7;
    static constexpr int LastCustomField = 14;
    static constexpr int PermissionsField = 15;
    static constexpr int OwnerField = 16;
    static constexpr int FingerprintField = 17;
};

// The field list as the dialog starts it for a list: the grid's columns
// Name to Version, each "[" + its trimmed heading + "]" and checked (In
// Folder only when the list offers it), then, when the list offers them,
// "[Permissions]" and "[Owner]", and "[Fingerprint]", unchecked, then eight
// unchecked "Custom" entries.
std::vector<ExportField> exportFields(bool inFolderOffered, bool accessOffered = false,
                                      bool fingerprintsOffered = false);

// Checking an entry numbered 6 to 14 asks for a custom text: the custom
// entries and, deliberately, the Version column too, whose written value
// stays the grid's all the same.
inline bool fieldPromptsForText(int number) {
    return number > 5 && number <= ExportField::LastCustomField;
}

// Moves the entry at index one place up (by -1, not from the first place)
// or down (by 1, not from the last), with its text and number; the moved
// entry ends up checked, whatever it was. Returns where the entry is now
// (index itself when it could not move).
int moveField(std::vector<ExportField>& fields, int index, int step);

bool anyFieldChecked(const std::vector<ExportField>& fields);

// The separators the dialog offers, in its list's order, and the text each
// writes between two fields: "(none)" nothing, "Comma" ",", "Tab" one TAB,
// "Space" one blank.
QStringList separatorNames();
QString separatorText(int position);
// The position of "Comma", the dialog's first choice.
inline constexpr int CommaSeparator = 1;

// How the values are written, kept by the dialog for the run.
struct ExportChoices {
    QString separator = QStringLiteral(",");
    // Grid values are enclosed in double quotes; custom text never is.
    bool quotes = true;
    // The Attributes field writes the attributes as a number (the hidden
    // key column, which is empty while the faster option is on).
    bool numericAttributes = false;
};

// The line builder: one line per row of a shown list, with the checked
// fields from top to bottom, the separator between them and none before the
// first or after the last. A grid value is the cell's text less its leading
// blanks, in quotes when asked. A grid value holding the separator, a double
// quote, a carriage return or a line feed (a file name may hold any of them)
// is always quoted, its quotes doubled, so that no name can split its row or
// forge another; custom text is written as it stands. Lines are UTF-8,
// without their line end.
class ExportLines {
public:
    // list must outlive the builder.
    ExportLines(const ShownList& list, std::vector<ExportField> fields, ExportChoices choices);
    ~ExportLines();

    int32_t rowCount() const { return m_list.rowCount(); }
    void appendLine(int32_t row, LineBuffer& out);
    QString line(int32_t row);

    // The preview: the first rows, at most ten, each followed by CR LF.
    QString preview();

    // Makes lines on one thread with texts of its own: one maker per thread
    // lets several threads make the lines of one builder at once.
    class Maker {
    public:
        explicit Maker(const ExportLines& lines);
        ~Maker();
        void appendLine(int32_t row, LineBuffer& out);

    private:
        // Encloses the value that starts at start in out, just after the
        // opening quote (if any) at opening, in quotes with its own doubled.
        void quoteValue(LineBuffer& out, size_t opening, size_t start);

        const ExportLines& m_lines;
        // Made when the list has rows.
        std::unique_ptr<CellWriter> m_cells;
        std::string m_value;
    };

private:
    // A checked field: the grid column it reads, or -1 and the custom text.
    struct Written {
        int column;
        QByteArray text;
    };

    const ShownList& m_list;
    std::vector<ExportField> m_fields;
    std::vector<Written> m_written;
    ExportChoices m_choices;
    QByteArray m_separator;
    QByteArray m_quote;
    // The bytes that make a value quoted whatever the choice.
    QByteArray m_forcing;
    std::array<bool, 256> m_forcesQuotes{};
    // The maker of appendLine, made when first asked.
    std::unique_ptr<Maker> m_maker;
};

// The rows of the preview: all of them up to ten.
inline constexpr int32_t PreviewRows = 10;
// Each exported line ends with CR LF, as the export files always have.
inline constexpr char LineEnd[] = "\r\n";

// Writes every row of the list, each line followed by CR LF, in blocks
// handed to write; false as soon as write refuses one. A long list has its
// lines made by a few threads, block by block, and handed to write in
// order by the calling thread as the blocks are ready; the threads are
// joined before it returns or throws.
bool writeExportLines(ExportLines& lines, const std::function<bool(std::string_view)>& write);
// The same to device; false when the device did not take them all.
bool writeExportLines(ExportLines& lines, QIODevice& device);

// Writes every row of the list, in display order and without a heading
// line, to path. The file is replaced only once it is complete, so a
// failure (no room left, say) leaves an existing file as it was; a link
// there is refused, never written through. A file that cannot be opened or
// written gives "Error Writing Snapshot" with the path and the system's
// description.
engine::Outcome writeExportFile(const QString& path, ExportLines& lines);

} // namespace kestrel::output
