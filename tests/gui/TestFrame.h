#pragma once

// A main window for window tests: on a temporary Kestrel.ini, with every
// question it would ask answered by the test and recorded, and a desktop
// that records what it is asked to open and starts nothing.

#include "shell/Launcher.h"
#include "shell/MainWindow.h"
#include "shell/RecentSnapshots.h"
#include "shell/SnapshotFileCommands.h"
#include "views/SnapshotWindow.h"

#include "TemporaryHome.h"

#include <functional>
#include <memory>
#include <optional>

struct Frame {
    std::unique_ptr<kestrel::shell::MainWindow> window;
    QStringList dialogs;               // class names of the dialogs shown
    QStringList titles;                // of the message boxes shown
    QStringList messages;              // "title: text" of the same
    QString saveAnswer;                // what the save dialog returns
    QString proposedSave;              // what it proposed
    QString exportAnswer;              // what the export's save dialog returns
    QString proposedExport;            // what it proposed
    std::optional<QString> textAnswer; // what the input box returns
    QStringList textDefaults;          // the text each input box offered
    kestrel::views::SaveAnswer saveQuestionAnswer = kestrel::views::SaveAnswer::Cancel;
    QList<QUrl> opened;         // documents handed to the desktop
    QList<QStringList> started; // programs started: the program, then its arguments
    // What the user does in a modal dialog while it is up; it answers
    // Rejected unless this returns another result.
    std::function<int(QDialog& dialog)> whileShown;

    enum Showing { Hidden, Shown };
    explicit Frame(const QString& iniPath, Showing showing = Hidden)
        : window(std::make_unique<kestrel::shell::MainWindow>(iniPath)) {
        using namespace Qt::StringLiterals;
        window->setFarewellTime(0);
        window->recentDialog().chooseFile = [this](const QString&) {
            dialogs << u"open-file dialog"_s;
            return QString();
        };
        kestrel::shell::UserQuestions& q = window->questions();
        q.exec = [this](QDialog& dialog) {
            dialogs << QString::fromLatin1(dialog.metaObject()->className());
            return whileShown ? whileShown(dialog) : int(QDialog::Rejected);
        };
        q.message = [this](const kestrel::engine::UserMessage& message) {
            titles << message.title;
            messages << message.title + u": "_s + message.text;
        };
        q.saveFileName = [this](const QString& proposed) {
            proposedSave = proposed;
            return saveAnswer;
        };
        q.exportFileName = [this](const QString& proposed, const QString&) {
            proposedExport = proposed;
            return exportAnswer;
        };
        q.text = [this](const QString&, const QString&, const QString& text) {
            textDefaults << text;
            return textAnswer;
        };
        q.saveQuestion = [this](const QString&) { return saveQuestionAnswer; };
        window->configDialog().question = [](const QString&, const QString&) { return true; };
        window->launcher().setDesktop(
            {[this](const QUrl& url) {
                 opened << url;
                 return true;
             },
             [this](const QString& program, const QStringList& arguments, const QString&) {
                 if (!QFileInfo(program).isFile())
                     return kestrel::shell::LaunchResult::FileNotFound;
                 started << (QStringList{program} + arguments);
                 return kestrel::shell::LaunchResult::Started;
             }});
        if (showing == Shown)
            window->show();
    }
    kestrel::shell::MainWindow* operator->() const { return window.get(); }

    // On screen and active: the mouse and the keys reach it as a user's do.
    bool showActive() {
        window->show();
        return QTest::qWaitForWindowActive(window.get());
    }
    kestrel::views::SnapshotWindow* first() const { return window->snapshotWindows().first(); }
    kestrel::views::SnapshotWindow* second() const { return window->snapshotWindows().last(); }
    kestrel::views::SnapshotWindow* active() const { return window->activeSnapshotWindow(); }
    void clickToolbar(const QString& caption) {
        QTest::mouseClick(window->toolbar()->widgetForAction(window->toolbarButton(caption)),
                          Qt::LeftButton);
    }
    // The captions of the toolbar's buttons that may be clicked now.
    QStringList enabledButtons() const {
        QStringList captions;
        for (const QAction* button : window->toolbar()->actions())
            if (!button->isSeparator() && button->isEnabled())
                captions << button->text();
        return captions;
    }
    void saveAs(kestrel::views::SnapshotWindow& w, const QString& file) {
        saveAnswer = file;
        kestrel::shell::mnuFileSaveAs_Click(*window, w);
    }
    // Repeat of a window, the active one unless named, as from the File menu.
    void repeat(kestrel::views::SnapshotWindow* w = nullptr) {
        kestrel::shell::mnuFileRepeat_Click(*window, w ? *w : *active());
    }
    // The focus back on the frame: the offscreen platform leaves the keys
    // with a closed menu.
    void focus() {
        window->windowHandle()->requestActivate();
        QTRY_COMPARE(QGuiApplication::focusWindow(), window->windowHandle());
    }
    // Windows closed from here on close without a question; w is gone.
    void closeWithoutSaving(kestrel::views::SnapshotWindow& w) {
        saveQuestionAnswer = kestrel::views::SaveAnswer::No;
        const qsizetype open = window->snapshotWindows().size();
        QVERIFY(w.parentWidget()->close());
        QTRY_COMPARE(window->snapshotWindows().size(), open - 1);
    }

    // While a dialog of type D is up, check runs on it (a failed QCOMPARE
    // returns from check alone) and the dialog answers its own result.
    template <typename D> void whileShowing(std::function<void(D&)> check) {
        whileShown = [check](QDialog& dialog) {
            if (auto* shown = qobject_cast<D*>(&dialog))
                check(*shown);
            return dialog.result();
        };
    }
};
