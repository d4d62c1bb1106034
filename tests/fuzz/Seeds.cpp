#include "Seeds.h"

#include "FuzzTargets.h"
#include "TestSupport.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "settings/IniFile.h"

#include <QDir>
#include <QFile>

namespace kestrel::test {

namespace {

bool saveSnapshot(engine::Snapshot& s, const QString& path) {
    engine::ProgressMeter meter;
    s.header.fileName = path;
    return engine::SaveSnapshot(s, meter).ok;
}

bool snapshotSeeds(const QString& dir) {
    using engine::Snapshot;
    Snapshot tree;
    tree.header.title = QStringLiteral("Snapshot #1 of /data, \"odd\" names");
    tree.header.created = 45000.5;
    tree.header.recurse = tree.header.hidden = tree.header.versions = true;
    Node odd = Node::file("say \"hi\", then\nbreak.txt", 12, 44000.25);
    const Node tool = Node::file("tool.exe", 70000, 45000, 0, "5.01.2600.00");
    buildSnapshot(tree, {Node::dir("Docs", {Node::file("a.txt", 1234), odd, Node::dir("Empty"),
                                            Node::dir("Sub", {tool})}),
                         Node::file("Grüße €.txt", 5), Node::file("top.txt", 0)});
    tree.header.rootFolder = QStringLiteral("/data/");
    if (!saveSnapshot(tree, dir + QStringLiteral("/tree.#01")))
        return false;

    // Loaded and saved again: with the empty records of the capacity.
    Snapshot again;
    again.header.fileName = dir + QStringLiteral("/tree.#01");
    engine::ProgressMeter meter;
    if (!engine::LoadSnapshot(again, meter).ok ||
        !saveSnapshot(again, dir + QStringLiteral("/padded.#02")))
        return false;

    // As a stream with its side data after it.
    tree.access.set(1, engine::EntryAccess{04755, 0, 0});
    tree.access.set(2, engine::EntryAccess{0644, 1000, 1000});
    tree.access.setLinkTarget(2, "/etc/passwd");
    QFile stream(dir + QStringLiteral("/stream.#01"));
    if (!stream.open(QIODevice::WriteOnly) || !engine::WriteSnapshotStream(tree, stream, meter).ok)
        return false;
    stream.close();

    Snapshot empty;
    empty.header.title = QStringLiteral("Empty");
    if (!saveSnapshot(empty, dir + QStringLiteral("/empty.#01")))
        return false;

    // As the Windows program wrote it: Windows-1252, backslashes.
    return writeBytes(dir + QStringLiteral("/windows.#01"),
                      exampleSnapshotFile(16).replace("b.txt", "b\xE4.txt"));
}

bool versionTwoSeeds(const QString& dir) {
    return writeBytes(dir + QStringLiteral("/tree.dat"), versionTwoTree()) &&
           writeBytes(dir + QStringLiteral("/flat.dat"),
                      "\"/srv/;3\"\n1,45000\n#FALSE#,#TRUE#,#FALSE#\n2\n"
                      "\"\\\",\"f1\",1,0,32,\"\",0,0,0\n\" \",\"f2\",2,0,32,\"\",0,0,0\n");
}

bool peSeeds(const QString& dir) {
    const std::pair<const char*, Image> images[] = {
        {"/pe32.dll", makeImage(false, (5u << 16) | 1, 2600u << 16)},
        {"/pe32plus.exe", makeImage(true, (1u << 16) | 2, (3u << 16) | 4)},
    };
    for (const auto& [name, image] : images) {
        const QByteArray bytes(reinterpret_cast<const char*>(image.bytes.data()),
                               qsizetype(image.bytes.size()));
        if (!writeBytes(dir + QLatin1String(name), bytes))
            return false;
    }
    return true;
}

bool iniSeeds(const QString& dir) {
    const settings::IniFile ini(dir + QStringLiteral("/Kestrel.ini"));
    if (!writeBytes(ini.path(), "; kept as it is\r\n[Other]\r\nKey=\"quoted value\"\r\n"))
        return false;
    const char* const values[][2] = {{"Top", "1200"},    {"Left", "960"},
                                     {"Height", "6000"}, {"Width", "8000"},
                                     {"Window", "2"},    {"Folder", "/home/user/Data"}};
    for (const auto& [key, value] : values)
        if (!ini.writeString(QStringLiteral("Main"), QLatin1String(key), QLatin1String(value)))
            return false;
    return true;
}

} // namespace

bool writeSeeds(const QString& folder) {
    for (const char* kind : {"snapshot", "v2", "pe", "ini", "side"})
        if (!QDir().mkpath(folder + QLatin1Char('/') + QLatin1String(kind)))
            return false;
    return snapshotSeeds(folder + QStringLiteral("/snapshot")) &&
           versionTwoSeeds(folder + QStringLiteral("/v2")) &&
           peSeeds(folder + QStringLiteral("/pe")) && iniSeeds(folder + QStringLiteral("/ini")) &&
           writeBytes(folder + QStringLiteral("/side/small.meta"),
                      QByteArray::fromStdString(fuzz::smallSideData()));
}

} // namespace kestrel::test
