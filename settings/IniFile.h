#pragma once

#include <QString>

namespace kestrel::settings {

// The main window's placement: position and size in twips.
struct FramePlacement {
    int top = 0;
    int left = 0;
    int height = 0;
    int width = 0;
};

// The main window's state as stored.
enum class FrameState {
    Normal = 0,
    Minimised = 1,
    Maximised = 2,
};

// The new-snapshot dialog's last choices, as the user saw them (with the
// platform's separators): the folder to scan, the drive it lies on and the
// version folder; and Kestrel's own addition, the patterns the scan leaves
// out ("Exclude"). Empty when none is stored.
struct ScanFolders {
    QString folder;
    QString drive;
    QString versionFolder;
    QString exclude;
    // Kestrel's own addition: content fingerprints asked for.
    bool fingerprints = false;
};

// "Kestrel.ini": the main window's placement and the new-snapshot dialog's
// last folders, in the Windows INI form (section headers in brackets, then
// key=value lines). Section and key names match without regard to case.
// Reads return at most 254 characters, a missing file or key gives the
// default, and writing an empty value deletes the key. A write changes the
// one line of its key and keeps every other line byte for byte, whatever its
// encoding (comments, other sections, values a Windows editor wrote in
// Windows-1252); names and values read as UTF-8 where they are, otherwise as
// Windows-1252. The file is replaced whole, never written through a link.
class IniFile {
public:
    explicit IniFile(QString path) : m_path(std::move(path)) {}

    const QString& path() const { return m_path; }

    // ReadIniString.
    QString readString(const QString& section, const QString& key,
                       const QString& defaultValue) const;
    // WriteIniString. Returns false when the file could not be written (the
    // program reports no failure here; tests look).
    bool writeString(const QString& section, const QString& key, const QString& value) const;

    // Section "Main": the main window's placement. Each stored value that
    // is a number (rounded to a whole one) replaces the value of present; a
    // missing or damaged one leaves it.
    FramePlacement readFramePlacement(const FramePlacement& present) const;
    void writeFramePlacement(const FramePlacement& placement) const;
    // A stored state other than minimised or maximised reads as normal.
    FrameState readFrameState() const;
    void writeFrameState(FrameState state) const;

    // Section "Main": the new-snapshot dialog's last choices. An empty one
    // is not stored.
    ScanFolders readScanFolders() const;
    void writeScanFolders(const ScanFolders& folders) const;

    // Where Kestrel.ini lives: beside the program when that folder is
    // writable and is the program's own (its help page is there, as in the
    // build folder), otherwise in the user's configuration folder
    // ($XDG_CONFIG_HOME/Kestrel, by default ~/.config/Kestrel), where an
    // installed program keeps it.
    static QString defaultPath();

private:
    QString m_path;
};

} // namespace kestrel::settings
