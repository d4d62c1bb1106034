#pragma once

#include "engine/compare/CompareOptions.h"
#include "output/ChangeList.h"

#include <QString>
#include <QTextStream>

#include <cstdint>
#include <vector>

namespace kestrel::engine {
class Snapshot;
}

namespace kestrel::cli {

// Writes the lines of kestrel-cli compare as text or comma-separated values
// (after a heading line) on standard output: the changes of a change list,
// or the rows of NEW's file list in a show mode.
class CompareReport {
public:
    // JSON lines serve only the rows of a show mode: a change list's own
    // JSON forms are output::ChangeDocument's.
    enum Format { Text, Csv, Jsonl };
    // The snapshots and options are borrowed for the report's life.
    CompareReport(Format format, const engine::Snapshot& newer, const engine::Snapshot& older,
                  const engine::CompareOptions& options);

    // Every change of the list, in its order.
    void changes(const output::ChangeList& list);
    // A row of NEW's file list in a show mode.
    void listed(int32_t index);

private:
    void change(const output::ChangeList& list, const output::Change& c);
    void unreadable(const QString& change, const engine::Snapshot& s, int32_t marker);
    void csvRow(const QString& change, const engine::Snapshot& s, int32_t i, const QString& was);
    void jsonEntry(const QString& change, const engine::Snapshot& s, int32_t i, const QString& was);
    // "size 18 -> 9, modified 2025-02-16 05:23:41 -> 2026-11-24 18:28:51":
    // a changed file's line read on its own.
    static QString changesText(const output::ChangeList& list, const output::Change& c);

    Format m_format;
    const engine::Snapshot& m_new;
    const engine::Snapshot& m_old;
    const engine::CompareOptions& m_options;
    QTextStream m_out;
};

} // namespace kestrel::cli
