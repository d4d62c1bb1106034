#pragma once

#include "engine/compare/CompareOptions.h"
#include "engine/compare/Differences.h"
#include "engine/compare/Moves.h"

#include <QString>
#include <QTextStream>

#include <cstdint>
#include <vector>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::cli {

// Writes the lines of kestrel-cli compare on standard output: as text, as
// comma-separated values (after a heading line) or as one JSON object a line.
class CompareReport {
public:
    enum Format { Text, Csv, Jsonl };
    // The comparison must have marked both snapshots; they, and the options,
    // are borrowed for the report's life.
    CompareReport(Format format, const engine::Snapshot& newer, const engine::Snapshot& older,
                  const engine::CompareOptions& options);

    // A difference line: the entry of the side it belongs to.
    void difference(const engine::Difference& d);
    // A moved entry's line: ">", the path in OLD and where it is in NEW.
    void moved(const engine::Move& move);
    // A row of NEW's file list in a show mode.
    void listed(int32_t index);

private:
    // A field of a changed file whose value differs, with its old and new
    // values in the forms list prints them.
    struct FieldChange {
        const char* field;
        QString before;
        QString after;
        bool number;
    };

    void unreadable(const QString& change, const engine::Snapshot& s, int32_t marker);
    void csvRow(const QString& change, const engine::Snapshot& s, int32_t i, const QString& was);
    void jsonEntry(const QString& change, const engine::Snapshot& s, int32_t i, const QString& was);
    void jsonChanged(int32_t i);
    // ,"alert":"setuid" for an entry of NEW whose access calls for attention.
    void jsonAlert(const engine::Snapshot& s, int32_t i);
    std::vector<FieldChange> fieldChanges(int32_t i) const;
    QString changesText(int32_t i) const;

    Format m_format;
    const engine::Snapshot& m_new;
    const engine::Snapshot& m_old;
    const engine::CompareOptions& m_options;
    QTextStream m_out;
};

} // namespace kestrel::cli
