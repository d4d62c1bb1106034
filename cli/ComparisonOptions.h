#pragma once

#include "engine/compare/CompareOptions.h"

#include <QCommandLineOption>
#include <QCommandLineParser>

#include <optional>

namespace kestrel::cli {

// The options of the commands that compare snapshots (compare, history):
// what to ignore, and whether to look for moves.
struct ComparisonOptions {
    QCommandLineOption ignoreSize{QStringLiteral("ignore-size"),
                                  QStringLiteral("Ignore file sizes.")};
    QCommandLineOption ignoreVersion{QStringLiteral("ignore-version"),
                                     QStringLiteral("Ignore file versions.")};
    QCommandLineOption ignoreDst{
        QStringLiteral("ignore-dst"),
        QStringLiteral("Ignore dates that differ by one hour (clock changes), give or take the "
                       "tolerance.")};
    QCommandLineOption ignoreAttributes{
        QStringLiteral("ignore-attributes"),
        QStringLiteral(
            "Leave these attributes out of the comparison: R read-only, H hidden, S system,\n"
            "A archive. Without it every attribute counts but the normal bit, which only says\n"
            "that no other bit is set."),
        QStringLiteral("R,H,S,A")};
    QCommandLineOption ignorePermissions{
        QStringLiteral("ignore-permissions"),
        QStringLiteral(
            "Ignore permission bits (set-user-ID, set-group-ID and sticky among them).")};
    QCommandLineOption ignoreOwner{QStringLiteral("ignore-owner"),
                                   QStringLiteral("Ignore owners and groups.")};
    QCommandLineOption noMoves{
        QStringLiteral("no-moves"),
        QStringLiteral("Do not pair files only in OLD with files only in NEW as moves (a move "
                       "is printed as \">\tOLD PATH -> NEW PATH\" in place of its - and + "
                       "lines).")};
    QCommandLineOption touched{
        QStringLiteral("touched"),
        QStringLiteral("Report a file whose date changed though its content fingerprint did "
                       "not (by default such a file is unchanged).")};
    QCommandLineOption tolerance{
        QStringLiteral("tolerance"),
        QStringLiteral("Dates that differ by this much or less are the same: seconds, or e.g. "
                       "2s, 90m, 1h, 3d."),
        QStringLiteral("DURATION")};
    QCommandLineOption ignore{
        QStringLiteral("ignore"),
        QStringLiteral("Ignore entries matching PATTERN (repeatable; the last that matches "
                       "decides)."),
        QStringLiteral("PATTERN")};
    QCommandLineOption ignoreFrom{
        QStringLiteral("ignore-from"),
        QStringLiteral("Ignore entries matching the patterns of FILE, one a line (before "
                       "--ignore's)."),
        QStringLiteral("FILE")};
    QCommandLineOption useSettings{
        QStringLiteral("use-settings"),
        QStringLiteral(
            "Start from the ignore options stored by Kestrel's options dialog, its ignore\n"
            "patterns first. There the attributes ticked under \"Ignore attributes\" are the\n"
            "only ones compared, and none are while that box is off.")};
    // Adds the options to the parser.
    void addTo(QCommandLineParser& parser) const;
    // What the comparison ignores: nothing, or what the options dialog
    // stored, and then what the options ask. Nothing, with the reason
    // printed, when an option's value is not understood.
    std::optional<engine::CompareOptions> chosen(const QCommandLineParser& p) const;
};

} // namespace kestrel::cli
