#pragma once

#include "engine/support/Errors.h"

#include <QString>
#include <QStringList>

#include <functional>

class QUrl;

namespace kestrel::shell {

// Shell-style result numbers of a launch: 32 and above is success, below
// it the reason it failed.
namespace LaunchResult {
inline constexpr int Started = 33;
// The desktop's launcher itself could not be started: nothing can be opened.
inline constexpr int OutOfResources = 0;
inline constexpr int FileNotFound = 2;
inline constexpr int PathNotFound = 3;
inline constexpr int AccessDenied = 5;
inline constexpr int OutOfMemory = 8;
inline constexpr int BadFormat = 11;
inline constexpr int NoAssociation = 31;
} // namespace LaunchResult

// The text of "Application Launch Error" for a failed result.
QString LaunchErrorText(int result);

// Hands documents and the help page to the desktop, and starts programs.
// A document opens in the application the desktop associates with its type;
// a program is started directly with its arguments split as a shell splits
// quoted words, never through a shell. Failures are shown through the
// message function given, never thrown.
class Launcher {
public:
    // What the desktop does, replaceable so that tests start nothing.
    struct Desktop {
        // Hands a document or folder to the desktop's launcher (xdg-open on
        // Linux), which opens it in its associated application. False when
        // the launcher could not be started at all; whether an application
        // takes the type is not known at this point.
        std::function<bool(const QUrl& url)> openUrl;
        // Starts a program in a working folder; returns a launch result.
        // The paths and arguments are native text (engine/model/FileSystemNames.h).
        std::function<int(const QString& program, const QStringList& arguments,
                          const QString& folder)>
            startProgram;
    };
    using MessageFunction = std::function<void(const engine::UserMessage& message)>;

    // The desktop of this system: QDesktopServices and QProcess.
    static Desktop systemDesktop();

    explicit Launcher(MessageFunction message, Desktop desktop = systemDesktop());

    // Puts another desktop in place, for tests that must start nothing.
    void setDesktop(Desktop desktop) { m_desktop = std::move(desktop); }

    // Where KestHelp.htm is looked for: the program's folder unless set.
    QString programFolder() const;
    void setProgramFolder(const QString& folder) { m_programFolder = folder; }
    // The help page: beside the program (as in the build folder), else in
    // the installed data folder (share/kestrel beside bin); beside the
    // program when neither has it.
    QString helpPath() const;

    // LaunchDocument: opens root + folder + name, with root + folder as the
    // working folder. An executable file is started with the parameters as
    // its arguments; anything else is opened by association (a document
    // takes no parameters there). A failure shows "Application Launch
    // Error". The result is false in every case, success included: no caller
    // may rely on it. The paths are stored text, as a snapshot keeps them.
    bool LaunchDocument(const QString& root, const QString& folder, const QString& name,
                        const QString& parameters);

    // Starts a program directly, never through a shell, with the arguments
    // as given and workingFolder as its working folder, all native text. A
    // program named without any folder is one that was found nowhere on
    // PATH: it is not found, whatever the working folder holds. A failure
    // shows "Application Launch Error" naming the program as given. True
    // when the program was started.
    bool StartProgram(const QString& program, const QStringList& arguments,
                      const QString& workingFolder);

    // ShowHelp: opens KestHelp.htm from the program's folder, always at its
    // start: the anchor is not passed on. A missing page opens nothing and
    // says nothing (the desktop would only report the file as not found);
    // only when the desktop's launcher cannot be started at all does it show
    // "No program could open the help file <path>" ("No Help Available")
    // and return false. Otherwise true.
    bool ShowHelp(const QString& anchor);

private:
    // Shows the text of a failed result; a program named is added to it.
    void reportFailure(int result, const QString& program = QString()) const;

    MessageFunction m_message;
    Desktop m_desktop;
    QString m_programFolder;
};

} // namespace kestrel::shell
