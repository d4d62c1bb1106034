#pragma once

// A main window for window tests: on a temporary Kestrel.ini, with every
// question it would ask answered by the test and recorded, and a desktop
// that records what it is asked to open and starts nothing.

#include "shell/Launcher.h"
#include "shell/MainWindow.h"
#include "shell/RecentSnapshots.h"

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
    QString exportFilter;              // and with which filter
    std::optional<QString> textAnswer; // what the input box returns
    QStringList textDefaults;          // the text each input box offered
    kestrel::views::SaveAnswer saveQuestionAnswer = kestrel::views::SaveAnswer::Cancel;
    QList<QUrl> opened;         // documents handed to the desktop
    QList<QStringList> started; // programs started: the program, then its arguments
    QStringList questions;      // the options dialog's Yes/No questions
    // What the user does in a modal dialog while it is up; it answers
    // Rejected unless this returns another result.
    std::function<int(QDialog& dialog)> whileShown;

    explicit Frame(const QString& iniPath)
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
        q.exportFileName = [this](const QString& proposed, const QString& filter) {
            proposedExport = proposed;
            exportFilter = filter;
            return exportAnswer;
        };
        q.text = [this](const QString&, const QString&, const QString& text) {
            textDefaults << text;
            return textAnswer;
        };
        q.saveQuestion = [this](const QString&) { return saveQuestionAnswer; };
        window->configDialog().question = [this](const QString& title, const QString&) {
            questions << title;
            return true;
        };
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
    }
    kestrel::shell::MainWindow* operator->() const { return window.get(); }

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
