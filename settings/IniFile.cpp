#include "IniFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QStringList>

namespace kestrel::settings {

namespace {

// The longest value a read returns: a 255-character buffer less its NUL.
constexpr qsizetype MaxRead = 254;

QStringList readLines(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString text = QString::fromUtf8(file.readAll());
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

bool isSectionHeader(const QString& line, QString* name = nullptr) {
    const QString t = line.trimmed();
    if (!t.startsWith(QLatin1Char('[')))
        return false;
    const qsizetype close = t.indexOf(QLatin1Char(']'));
    if (close < 0)
        return false;
    if (name)
        *name = t.mid(1, close - 1).trimmed();
    return true;
}

bool isKeyLine(const QString& line, const QString& key, QString* value = nullptr) {
    const qsizetype eq = line.indexOf(QLatin1Char('='));
    if (eq < 0)
        return false;
    if (line.left(eq).trimmed().compare(key, Qt::CaseInsensitive) != 0)
        return false;
    if (value)
        *value = line.mid(eq + 1).trimmed();
    return true;
}

} // namespace

QString IniFile::readString(const QString& section, const QString& key,
                            const QString& defaultValue) const {
    const QStringList lines = readLines(m_path);
    bool inSection = false;
    QString found = defaultValue;
    for (const QString& line : lines) {
        QString name;
        if (isSectionHeader(line, &name)) {
            inSection = name.compare(section, Qt::CaseInsensitive) == 0;
            continue;
        }
        QString value;
        if (inSection && isKeyLine(line, key, &value)) {
            // A value in matching quotes is given without them.
            if (value.size() >= 2 && value.front() == value.back() &&
                (value.front() == QLatin1Char('"') || value.front() == QLatin1Char('\'')))
                value = value.mid(1, value.size() - 2);
            found = value;
            break;
        }
    }
    return found.left(MaxRead);
}

bool IniFile::writeString(const QString& section, const QString& key, const QString& value) const {
    QStringList lines = readLines(m_path);
    const bool remove = value.isEmpty();
    qsizetype sectionStart = -1; // index of the header line
    qsizetype sectionEnd = -1;   // index after the section's last non-blank line
    qsizetype keyLine = -1;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        QString name;
        if (isSectionHeader(lines[i], &name)) {
            if (sectionStart >= 0 && sectionEnd >= 0)
                break;
            if (name.compare(section, Qt::CaseInsensitive) == 0) {
                sectionStart = i;
                sectionEnd = i + 1;
            }
            continue;
        }
        if (sectionStart >= 0) {
            if (!lines[i].trimmed().isEmpty())
                sectionEnd = i + 1;
            if (keyLine < 0 && isKeyLine(lines[i], key))
                keyLine = i;
        }
    }
    const QString newLine = key + QLatin1Char('=') + value;
    if (keyLine >= 0) {
        if (remove)
            lines.removeAt(keyLine);
        else
            lines[keyLine] = newLine;
    } else if (remove) {
        return true; // nothing to delete
    } else if (sectionStart >= 0) {
        lines.insert(sectionEnd, newLine);
    } else {
        lines.append(QLatin1Char('[') + section + QLatin1Char(']'));
        lines.append(newLine);
    }

    QDir().mkpath(QFileInfo(m_path).absolutePath());
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QByteArray bytes;
    for (const QString& line : lines)
        bytes += line.toUtf8() + '\n';
    file.write(bytes);
    return file.commit();
}

QString IniFile::defaultPath() {
    // The program's folder counts only while the program keeps its own files
    // beside it (the build folder, a copy unpacked anywhere). An installed
    // program keeps them in share/kestrel, and its bin/ folder is shared
    // with every other program: writable there by root alone, and never the
    // place for one user's file.
    const QString programFolder = QCoreApplication::applicationDirPath();
    const QFileInfo folder(programFolder);
    const bool ownFolder = QFileInfo::exists(programFolder + QStringLiteral("/KestHelp.htm"));
    if (!programFolder.isEmpty() && ownFolder && folder.isDir() && folder.isWritable())
        return programFolder + QStringLiteral("/Kestrel.ini");
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/Kestrel/Kestrel.ini");
}

} // namespace kestrel::settings
