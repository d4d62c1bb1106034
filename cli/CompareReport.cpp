#include "CompareReport.h"

#include "EntryText.h"

#include "engine/compare/Compare.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"

#include <QStringList>

namespace kestrel::cli {

using namespace engine;
using output::Change;
using output::ChangeList;

namespace {

QString valueText(const QString& value) {
    return value.isEmpty() ? QStringLiteral("none") : escapedPath(value);
}

} // namespace

CompareReport::CompareReport(Format format, const Snapshot& newer, const Snapshot& older,
                             const CompareOptions& options)
    : m_format(format), m_new(newer), m_old(older), m_options(options), m_out(stdout) {
    m_out.setEncoding(QStringConverter::Utf8);
    if (m_format == Csv)
        m_out << "change,path,size,modified,attributes,version,was\n";
}

void CompareReport::changes(const ChangeList& list) {
    for (const Change& c : list.changes())
        change(list, c);
}

void CompareReport::change(const ChangeList& list, const Change& c) {
    const Snapshot& s = list.sideOf(c);
    if (c.kind == Change::Unreadable) {
        // What the folder holds on that side is not known: no addition or
        // deletion is claimed.
        unreadable(QStringLiteral("?"), s, c.index);
        return;
    }
    if (c.kind == Change::Moved) {
        const QString from = m_old.relativePath(c.oldIndex);
        const QString to = m_new.relativePath(c.index);
        if (m_format == Csv)
            csvRow(QStringLiteral(">"), m_old, c.oldIndex, QStringLiteral("to ") + to);
        else
            m_out << ">\t" << escapedPath(from) << " -> " << escapedPath(to) << '\n';
        return;
    }
    const bool changed = c.kind == Change::Changed || c.kind == Change::Content;
    // An entry whose access calls for attention is marked with a leading "!".
    const AccessAlert alert = c.inOld ? AccessAlert::None : alertOf(m_new, c.index);
    const QString sign = (alert != AccessAlert::None ? QStringLiteral("!") : QString()) +
                         QLatin1Char(output::kindSign(c.kind));
    const QString was = changed ? WhatChanged(m_new, m_old, c.index, m_options) : QString();
    if (m_format == Csv) {
        csvRow(sign, s, c.index, was);
        return;
    }
    m_out << sign << '\t' << escapedPath(s.relativePath(c.index));
    if (!was.isEmpty())
        m_out << '\t' << was;
    if (changed)
        m_out << '\t' << changesText(list, c);
    m_out << '\n';
}

// A row of the file list of a show mode.
void CompareReport::listed(int32_t index) {
    const SnapshotEntry& e = m_new.entry(index);
    const QString change = e.match == 0                      ? QStringLiteral("+")
                           : (!e.isFolder() && e.status > 0) ? QStringLiteral("~")
                                                             : QString();
    if (e.isUnreadableMarker()) {
        unreadable(change, m_new, index);
        return;
    }
    const QString was = WhatChanged(m_new, m_old, index, m_options);
    switch (m_format) {
    case Text:
        m_out << escapedPath(m_new.relativePath(index)) << '\t' << sizeText(e) << '\t'
              << modifiedIsoText(e) << '\t' << attributesText(e) << '\t'
              << textOf(m_new.versionOf(e)) << '\t' << was << '\n';
        break;
    case Csv:
        csvRow(change, m_new, index, was);
        break;
    case Jsonl:
        jsonEntry(change, m_new, index, was);
        break;
    }
}

// The nameless entry of a folder that could not be listed: the folder's
// path and " (unreadable)", with nothing of an entry.
void CompareReport::unreadable(const QString& change, const Snapshot& s, int32_t marker) {
    const QString text = unreadableText(s, marker);
    switch (m_format) {
    case Text:
        m_out << change << '\t' << text << '\n';
        break;
    case Csv:
        m_out << csvField(change) << ',' << csvField(text);
        for (int field = 0; field < 5; ++field)
            m_out << ',' << csvField(QString());
        m_out << '\n';
        break;
    case Jsonl:
        m_out << "{\"change\":" << jsonString(change) << ",\"path\":" << jsonString(text)
              << ",\"unreadable\":true}\n";
        break;
    }
}

void CompareReport::csvRow(const QString& change, const Snapshot& s, int32_t i,
                           const QString& was) {
    const SnapshotEntry& e = s.entry(i);
    m_out << csvField(change) << ',' << csvField(s.relativePath(i)) << ',' << csvField(sizeText(e))
          << ',' << csvField(modifiedIsoText(e)) << ',' << csvField(attributesText(e)) << ','
          << csvField(textOf(s.versionOf(e))) << ',' << csvField(was) << '\n';
}

void CompareReport::jsonEntry(const QString& change, const Snapshot& s, int32_t i,
                              const QString& was) {
    const SnapshotEntry& e = s.entry(i);
    // Values the scan could not read are null.
    const bool unknown = e.valuesUnknown();
    m_out << "{\"change\":" << jsonString(change) << ",\"path\":" << jsonString(s.relativePath(i))
          << ",\"folder\":" << (e.isFolder() ? "true" : "false")
          << ",\"size\":" << (unknown ? QStringLiteral("null") : plainNumber(e.size))
          << ",\"modified\":"
          << (unknown ? QStringLiteral("null") : jsonString(isoDateTime(e.modified)))
          << ",\"attributes\":"
          << (unknown ? QStringLiteral("null") : jsonString(AttributeText(e.attributes)))
          << ",\"version\":" << jsonString(textOf(s.versionOf(e)));
    if (!was.isEmpty())
        m_out << ",\"was\":" << jsonString(was);
    const AccessAlert alert = alertOf(s, i);
    if (alert != AccessAlert::None)
        m_out << ",\"alert\":\"" << alertKeyword(alert) << '"';
    m_out << "}\n";
}

QString CompareReport::changesText(const ChangeList& list, const Change& c) {
    QStringList parts;
    for (const output::FieldChange& f : list.fieldChanges(c))
        parts << QLatin1String(f.field) + QLatin1Char(' ') + valueText(f.before) +
                     QStringLiteral(" -> ") + valueText(f.after);
    return parts.join(QStringLiteral(", "));
}

} // namespace kestrel::cli
