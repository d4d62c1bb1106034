// Finding entries by name: the text a name contains or the pattern it fits,
// letter case ignored. (The snapshot window's tests walk to the next such
// entry round the table.)

#include "engine/model/NameFilter.h"

#include <gtest/gtest.h>

#include <QList>

using namespace kestrel::engine;

namespace {

// Each case is "text|name": a text and a name it fits, or does not. A
// pattern fits the whole name; "?" is one character, however many bytes it
// takes; names outside ASCII fold as the comparison folds them (the Kelvin
// sign, the long s); bytes that are not UTF-8 stand for themselves.
TEST(NameFilter, TextsAndPatternsIgnoringCase) {
    const auto expectFits = [](const char* textAndName, bool fits) {
        const QList<QByteArray> parts = QByteArray(textAndName).split('|');
        EXPECT_EQ(NameFilter(QString::fromUtf8(parts[0])).matches(parts[1].toStdString()), fits)
            << textAndName;
    };
    for (const char* c :
         {"|anything", "read|README.md", "ME.M|readme.md", "*.TXT|notes.txt", "n?tes*|Notes.txt",
          "*a*b*c*|xaxbxcx", "a**|a", "caf?|café", "ÄRGER|ärger.doc", "strasse|Straße",
          "kernel|\u212Aernel", "pass|pa\u017F\u017Fwd", "caf|caf\xE9"})
        expectFits(c, true);
    for (const char* c : {"readme.md.|readme.md", "xyz|readme.md", "*.txt|notes.txt.bak",
                          "n?tes|notes.txt", "*a*b*c|xaxbxcx", "caf??|café"})
        expectFits(c, false);
}

} // namespace
