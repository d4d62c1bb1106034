#pragma once

#include "engine/support/TextFormats.h"

#include <QString>

#include <cstdint>
#include <string_view>

namespace kestrel::engine {
class Snapshot;
struct SnapshotEntry;
} // namespace kestrel::engine

// How kestrel-cli writes paths and the values of entries.
namespace kestrel::cli {

// Tabs and line breaks in a path, escaped so that each entry stays one
// tab-separated line. Backslashes are printed as they stand: a name of a
// snapshot made on POSIX already has each of its own written \\ (and each
// byte that is not UTF-8 written \xHH), and names made on Windows hold none.
// Every other control character is written as the bytes of its UTF-8, \xHH
// each, which read back as those bytes: printed as it stands, an escape
// sequence in a name would act on the terminal, erasing or rewriting the
// lines before it.
QString escapedPath(const QString& path);

using engine::isoDateTime;
// A whole number without separators.
QString plainNumber(double value);
QString textOf(std::string_view utf8);

// Size, date and attributes of an entry as the command line prints them;
// "unknown" where the scan could not read them.
QString sizeText(const engine::SnapshotEntry& e);
QString modifiedIsoText(const engine::SnapshotEntry& e);
QString attributesText(const engine::SnapshotEntry& e);

// The nameless entry that stands for the contents of a folder that could not
// be listed, as the command line prints it: the folder's path and
// " (unreadable)", never an entry of its own.
QString unreadableText(const engine::Snapshot& s, int32_t marker);

// A field of comma-separated values: in double quotes, each of its own
// doubled.
QString csvField(const QString& text);
// A JSON string: in double quotes, with quotes, backslashes and control
// characters escaped.
QString jsonString(const QString& text);

} // namespace kestrel::cli
