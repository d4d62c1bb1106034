#include "Seeds.h"

#include "FuzzTargets.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <vector>

namespace {

using Entry = int (*)(const uint8_t*, size_t);

struct Target {
    const char* name; // the fuzzer's name and the folder of its kept inputs
    Entry entry;
    std::vector<const char*> seedKinds;
};

const Target Targets[] = {
    {"snapshot_reader", kestrel::fuzz::snapshotReader, {"snapshot", "v2"}},
    {"v2_import", kestrel::fuzz::versionTwoImport, {"v2", "snapshot"}},
    {"compare", kestrel::fuzz::compareWithItself, {"snapshot", "v2"}},
    {"save", kestrel::fuzz::saveAndReadBack, {"snapshot", "v2"}},
    {"pe_version", kestrel::fuzz::peVersion, {"pe"}},
    {"ini_reader", kestrel::fuzz::iniReader, {"ini"}},
    {"side_data", kestrel::fuzz::sideDataReader, {"side"}},
};

QStringList filesIn(const QString& folder) {
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden);
    while (it.hasNext())
        files << it.next();
    files.sort();
    return files;
}

void feed(Entry entry, const QString& file) {
    QFile f(file);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly)) << file.toStdString();
    const QByteArray bytes = f.readAll();
    SCOPED_TRACE(file.toStdString());
    // A fault aborts the process; anything else that escapes fails here.
    EXPECT_NO_THROW(
        entry(reinterpret_cast<const uint8_t*>(bytes.constData()), size_t(bytes.size())));
}

class FuzzRegressions : public testing::TestWithParam<Target> {};

// Every input a fuzzer ever crashed on, and the seeds the fuzzers start
// from, run clean through the same entry points.
TEST_P(FuzzRegressions, KeptInputsAndSeedsRunClean) {
    const Target& target = GetParam();
    QTemporaryDir seeds;
    ASSERT_TRUE(kestrel::test::writeSeeds(seeds.path()));
    int fed = 0;
    for (const char* kind : target.seedKinds)
        for (const QString& file : filesIn(seeds.filePath(QLatin1String(kind)))) {
            feed(target.entry, file);
            ++fed;
        }
    EXPECT_GT(fed, 0);
    for (const QString& file :
         filesIn(QStringLiteral(KESTREL_FUZZ_REGRESSIONS "/") + QLatin1String(target.name)))
        feed(target.entry, file);
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzRegressions, testing::ValuesIn(Targets),
                         [](const testing::TestParamInfo<Target>& info) {
                             return std::string(info.param.name);
                         });

} // namespace
