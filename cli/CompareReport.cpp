#include "CompareReport.h"

#include "EntryText.h"

#include "engine/compare/Compare.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"

#include <QStringList>

#include <cstdlib>

namespace kestrel::cli {

using namespace engine;

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

// A difference line: the entry of the side it belongs to.
void CompareReport::difference(const Difference& d) {
    const bool inOld = d.kind == Difference::OnlyInOld;
    const Snapshot& s = inOld ? m_old : m_new;
    if (s.entry(d.index).isUnreadableMarker()) {
        // What the folder holds on that side is not known: no addition or
        // deletion is claimed.
        unreadable(QStringLiteral("?"), s, d.index);
        return;
    }
    // An entry whose access calls for attention is marked with a leading "!".
    const AccessAlert alert = inOld ? AccessAlert::None : alertOf(m_new, d.index);
    const QString change =
        (alert != AccessAlert::None ? QStringLiteral("!") : QString()) + QLatin1Char(char(d.kind));
    const QString path = s.relativePath(d.index);
    const QString was =
        d.kind == Difference::Changed ? WhatChanged(m_new, m_old, d.index, m_options) : QString();
    switch (m_format) {
    case Text:
        m_out << change << '\t' << escapedPath(path);
        if (!was.isEmpty())
            m_out << '\t' << was;
        if (d.kind == Difference::Changed)
            m_out << '\t' << changesText(d.index);
        m_out << '\n';
        break;
    case Csv:
        csvRow(change, s, d.index, was);
        break;
    case Jsonl:
        // The alert has its own member: "change" keeps its three values.
        if (d.kind == Difference::Changed)
            jsonChanged(d.index);
        else
            jsonEntry(QString(QLatin1Char(char(d.kind))), s, d.index, QString());
        break;
    }
}

void CompareReport::moved(const Move& move) {
    const QString from = m_old.relativePath(move.from);
    const QString to = m_new.relativePath(move.to);
    switch (m_format) {
    case Text:
        m_out << ">\t" << escapedPath(from) << " -> " << escapedPath(to) << '\n';
        break;
    case Csv:
        csvRow(QStringLiteral(">"), m_old, move.from, QStringLiteral("to ") + to);
        break;
    case Jsonl:
        m_out << "{\"moved\":{\"from\":" << jsonString(from) << ",\"to\":" << jsonString(to)
              << "},\"folder\":" << (move.folder ? "true" : "false") << "}\n";
        break;
    }
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
    jsonAlert(s, i);
    m_out << "}\n";
}

void CompareReport::jsonAlert(const Snapshot& s, int32_t i) {
    if (&s != &m_new)
        return;
    const AccessAlert alert = alertOf(s, i);
    if (alert != AccessAlert::None)
        m_out << ",\"alert\":\"" << alertKeyword(alert) << '"';
}

std::vector<CompareReport::FieldChange> CompareReport::fieldChanges(int32_t i) const {
    const SnapshotEntry& now = m_new.entry(i);
    const SnapshotEntry& before = m_old.entry(std::abs(now.match));
    std::vector<FieldChange> changes;
    // A folder's own changes, never the sum of what lies beneath it.
    const int16_t status = ownChanges(m_new, i);
    if (status & Change::Size)
        changes.push_back({"size", plainNumber(before.size), plainNumber(now.size), true});
    if (status & Change::Date)
        changes.push_back(
            {"modified", isoDateTime(before.modified), isoDateTime(now.modified), false});
    if (status & Change::Attributes)
        changes.push_back(
            {"attributes", AttributeText(before.attributes), AttributeText(now.attributes), false});
    if (status & Change::Version)
        changes.push_back(
            {"version", textOf(m_old.versionOf(before)), textOf(m_new.versionOf(now)), false});
    if (status & Change::Content)
        changes.push_back(
            {"content",
             QString::fromStdString(fingerprintHex(m_old.fingerprints.at(std::abs(now.match)))),
             QString::fromStdString(fingerprintHex(m_new.fingerprints.at(i))), false});
    if (status & (Change::Permissions | Change::Owner | Change::LinkTarget)) {
        const AccessValues was = accessValuesOf(m_old, std::abs(now.match));
        const AccessValues is = accessValuesOf(m_new, i);
        if (status & Change::Permissions)
            changes.push_back({"permissions",
                               permissionsText(was.access.mode, kindLetter(before.attributes)),
                               permissionsText(is.access.mode, kindLetter(now.attributes)), false});
        if (status & Change::Owner)
            changes.push_back({"owner", ownerText(was.access.owner, was.access.group),
                               ownerText(is.access.owner, is.access.group), false});
        if (status & Change::LinkTarget)
            changes.push_back(
                {"target", linkTargetText(was.linkTarget), linkTargetText(is.linkTarget), false});
    }
    return changes;
}

// "size 18 -> 9, modified 2025-02-16 05:23:41 -> 2026-11-24 18:28:51":
// a changed file's line read on its own.
QString CompareReport::changesText(int32_t i) const {
    QStringList parts;
    for (const FieldChange& c : fieldChanges(i))
        parts << QLatin1String(c.field) + QLatin1Char(' ') + valueText(c.before) +
                     QStringLiteral(" -> ") + valueText(c.after);
    return parts.join(QStringLiteral(", "));
}

void CompareReport::jsonChanged(int32_t i) {
    m_out << "{\"change\":\"~\",\"path\":" << jsonString(m_new.relativePath(i));
    for (const FieldChange& c : fieldChanges(i)) {
        m_out << ",\"" << c.field << "\":{\"old\":";
        if (c.number)
            m_out << c.before << ",\"new\":" << c.after << '}';
        else
            m_out << jsonString(c.before) << ",\"new\":" << jsonString(c.after) << '}';
    }
    jsonAlert(m_new, i);
    m_out << "}\n";
}

} // namespace kestrel::cli
