// The export and print dialogs driven from a snapshot window as a user drives
// them: the export's choices, rules and file, the same lines from kestrel-cli,
// the print dialog without a printer and with a PDF file for its device, the
// toolbar's Print and the preview.

#include "TestFrame.h"

#include "output/ui/ExportDialog.h"
#include "output/ui/PrintDialog.h"

#include <QtPrintSupport>

using namespace kestrel;
using namespace Qt::StringLiterals;
using output::ExportDialog;
using output::PrintDialog;
using views::SnapshotWindow;

namespace {

const QDateTime Fixed(QDate(2024, 1, 1), QTime(12, 0));

// kestrel-cli run on arguments: its exit code, output and errors.
std::tuple<int, QByteArray, QByteArray> cli(const QStringList& arguments) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"LC_ALL"_s, u"en_US.UTF-8"_s); // the locale the window test fixed
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(KESTREL_CLI), arguments);
    process.waitForFinished(60000);
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

} // namespace

class OutputDialogsTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree;

    QString iniPath() const { return m_dir->filePath(u"Kestrel.ini"_s); }
    QString path(const QString& name) const { return m_dir->filePath(name); }

    // A window over the tree in a shown frame, its snapshot saved as Work.#01.
    SnapshotWindow* openSaved(Frame& frame) {
        frame->show();
        if (!frame->NewSnapshot(m_tree, true, true, false, 1))
            return nullptr;
        frame.saveAs(*frame.active(), path(u"Work.#01"_s));
        return frame.active();
    }

    // Two windows in frame: a snapshot of folder saved as FOLDER.#01, the
    // folder changed, Ctrl+R and the repeat saved as FOLDER.#02.
    bool snapshotPair(Frame& frame, const QString& folder, const std::function<void()>& change) {
        if (!frame.showActive() || !frame->NewSnapshot(folder, true, true, false, 1))
            return false;
        frame.saveAs(*frame.active(), folder + u".#01"_s);
        change();
        QTest::keyClick(frame.window.get(), Qt::Key_R, Qt::ControlModifier);
        if (frame->snapshotWindows().size() != 2 || !frame.second()->compared())
            return false;
        frame.saveAs(*frame.second(), folder + u".#02"_s);
        return true;
    }

    // The file the export dialog writes with its first choices for the
    // window's top folder in every show mode (taken with the arrow keys),
    // without and with the files of sub-folders, against kestrel-cli's
    // export of the same view of the same files.
    void expectTheCommandLinesRows(Frame& frame, SnapshotWindow& w, QSet<QByteArray>& seen) {
        const QStringList sortWords = words(u"none name folder size type modified attributes "
                                            "version"_s);
        const QStringList showWords = words(u"all only both changed diffs"_s);
        for (const bool subFolders : {false, true}) {
            if (w.showsSubFolders() != subFolders)
                w.action(u"mnuViewSubs"_s)->trigger();
            QCOMPARE(w.showsSubFolders(), subFolders);
            w.showSelector()->setFocus();
            QTest::keyClick(w.showSelector(), Qt::Key_Home);
            for (int position = 0; position < 5; ++position) {
                if (position > 0)
                    QTest::keyClick(w.showSelector(), Qt::Key_Down);
                QCOMPARE(w.showSelector()->currentIndex(), position);
                QVERIFY(w.selectFolder(u"/"_s));

                frame.exportAnswer = path(u"dialog.txt"_s);
                QFile::remove(frame.exportAnswer);
                frame.whileShowing<ExportDialog>([](ExportDialog& d) { d.cmdOK_Click(); });
                w.mnuFileExport_Click();
                const QByteArray fromWindow = readFile(frame.exportAnswer);

                QStringList arguments{u"export"_s,    w.snapshot().header.fileName,
                                      u"--compare"_s, w.pairedWindow()->snapshot().header.fileName,
                                      u"--show"_s,    showWords.at(position),
                                      u"--quotes"_s,  u"--use-settings"_s,
                                      u"--sort"_s,    sortWords.at(w.sortColumn())};
                if (w.sortDescending())
                    arguments.last() += u":desc"_s;
                if (subFolders)
                    arguments << u"--subfolders"_s;
                QCOMPARE(cli(arguments), std::tuple(0, fromWindow, QByteArray()));
                seen << fromWindow;
            }
        }
    }

private Q_SLOTS:
    void init() {
        QSettings(u"Kestrel"_s, u"Kestrel"_s).clear();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_tree = path(u"Work"_s);
        writeFiles(m_tree, {u"sub/inner.dat"_s}, Fixed);
        for (int i = 0; i < 25; ++i) {
            const QString file = m_tree + u"/file%1.txt"_s.arg(i, 2, 10, QLatin1Char('0'));
            writeFile(file, QByteArray(i * 100, 'x'));
            QVERIFY(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner |
                                                    QFile::ReadGroup | QFile::ReadOther));
            setTime(file, Fixed.addSecs(i));
        }
    }

    // 26 rows (25 files and a folder): ten in the preview, every one in the
    // file, in the grid's order, without a heading line; the file proposed
    // is named after the snapshot's; the choices stay for the next export.
    void exportWritesEveryRowAndKeepsTheChoices() {
        Frame frame(iniPath());
        SnapshotWindow* window = openSaved(frame);
        QVERIFY(window);
        window->SortSequence(SnapshotWindow::SortBySize + 0); // size ascending
        window->SortSequence(SnapshotWindow::SortBySize);     // and descending

        frame.exportAnswer = path(u"out.txt"_s);
        QString preview;
        frame.whileShowing<ExportDialog>([&](ExportDialog& exporter) {
            QCOMPARE(exporter.separatorList()->currentText(), u"Comma"_s);
            QVERIFY(exporter.quotesBox()->isChecked());
            // No In Folder without sub-folders; Permissions and Owner, as the
            // snapshot holds them.
            QCOMPARE(exporter.fieldList()->count(), 16);
            exporter.separatorList()->setCurrentIndex(2);
            exporter.quotesBox()->setChecked(false);
            for (int row = 1; row < 6; ++row) // only the name
                exporter.fieldList()->item(row)->setCheckState(Qt::Unchecked);
            preview = exporter.previewText();
            exporter.cmdOK_Click();
        });
        window->mnuFileExport_Click();
        QCOMPARE(frame.proposedExport, path(u"Work.txt"_s));
        QCOMPARE(preview.split(u'\n', Qt::SkipEmptyParts).size(), 10);
        QVERIFY2(preview.startsWith(u"file24.txt\nfile23.txt\n"_s), qPrintable(preview));
        const QByteArray written = readFile(path(u"out.txt"_s));
        QCOMPARE(written.count("\r\n"), 26);
        QVERIFY(written.startsWith(preview.replace(u'\n', u"\r\n"_s).toUtf8()));
        QVERIFY(written.endsWith("file00.txt\r\nsub\r\n"));

        // Next time: the separator and quoting as left, the fields afresh;
        // a cancelled save dialog writes nothing and leaves the dialog up.
        frame.whileShowing<ExportDialog>([&](ExportDialog& exporter) {
            QCOMPARE(exporter.separatorList()->currentText(), u"Tab"_s);
            QVERIFY(!exporter.quotesBox()->isChecked());
            QCOMPARE(exporter.fieldList()->item(1)->checkState(), Qt::Checked);
            frame.exportAnswer.clear();
            exporter.cmdOK_Click();
            QVERIFY(exporter.result() != QDialog::Accepted);
        });
        QVERIFY(QFile::remove(path(u"out.txt"_s)));
        window->mnuFileExport_Click();
        QVERIFY(!QFile::exists(path(u"out.txt"_s)));
    }

    // Checking Version or a custom entry asks for a text, which renames the
    // entry, and Attributes or Permissions asks nothing; OK needs a checked
    // entry; moving an entry checks it; a file that cannot be opened is
    // "Error Writing Snapshot".
    void theFieldListsRules() {
        Frame frame(iniPath());
        QVERIFY(openSaved(frame));
        QStringList asked;
        std::optional<QString> answer = u"Release"_s;
        frame->questions().text = [&](const QString& prompt, const QString& title,
                                      const QString& text) {
            asked << prompt + u'|' + title + u'|' + text;
            return answer;
        };
        frame.exportAnswer = path(u"missing/out.txt"_s);
        frame.whileShowing<ExportDialog>([&](ExportDialog& exporter) {
            QListWidget* list = exporter.fieldList();
            list->item(5)->setCheckState(Qt::Unchecked); // [Version]
            list->item(5)->setCheckState(Qt::Checked);
            QCOMPARE(asked, (QStringList{u"Enter Custom Text:|Custom Field|[Version]"_s}));
            QCOMPARE(list->item(5)->text(), u"Release"_s);
            // Attributes asks nothing; an empty answer keeps the text.
            list->item(4)->setCheckState(Qt::Unchecked);
            list->item(4)->setCheckState(Qt::Checked);
            answer = QString();
            list->item(8)->setCheckState(Qt::Checked);
            QCOMPARE(list->item(8)->text(), u"Custom"_s);
            QCOMPARE(list->item(8)->checkState(), Qt::Checked);
            list->item(6)->setCheckState(Qt::Checked); // [Permissions]
            QCOMPARE(asked.size(), 2);
            // The written value of the Version entry is still the grid's;
            // Permissions is the file's own.
            const QString first = exporter.previewText().section(u'\n', 0, 0);
            QVERIFY2(first.startsWith(u"\"file00.txt\",\"0\",\"txt\","_s), qPrintable(first));
            QVERIFY2(first.endsWith(u",\"\",\"-rw-r--r--\",Custom"_s), qPrintable(first));

            for (int row = 0; row < list->count(); ++row)
                list->item(row)->setCheckState(Qt::Unchecked);
            QVERIFY(!exporter.okButton()->isEnabled());
            QCOMPARE(exporter.previewText(), QString(10, u'\n')); // a line per row, empty
            // An unchecked custom entry moved up is checked, with no question.
            list->setCurrentRow(9);
            exporter.cmdShift_Click(0);
            QCOMPARE(list->currentRow(), 8);
            QCOMPARE(list->item(8)->checkState(), Qt::Checked);
            QCOMPARE(asked.size(), 2);
            QVERIFY(exporter.okButton()->isEnabled());
            exporter.cmdShift_Click(2);
            QCOMPARE(list->currentRow(), 9);
            exporter.cmdOK_Click();
        });
        frame.active()->mnuFileExport_Click();
        QCOMPARE(frame.titles, QStringList{u"Error Writing Snapshot"_s});
        QVERIFY(!QFile::exists(path(u"missing/out.txt"_s)));
    }

    // kestrel-cli lists exactly the window's rows, in the window's order, in
    // every show mode, with and without the files of sub-folders, on both
    // sides of a pair whose entries take every status: only on one side
    // (files, folders with and without contents), changed in size, date or
    // attributes, with changes beneath, and the same; and of a pair of
    // folders that hold only files, whose trees show no folder at all.
    void theCommandLineListsTheWindowsRows() {
        const QString tree = path(u"Pair"_s);
        const QString flat = path(u"Flat"_s);
        writeFiles(tree,
                   words(u"same.txt grows.txt dated.txt locked.txt gone.txt keep/k.txt "
                         "sub/changed.txt sub/plain.txt oldonly/o.txt"_s),
                   Fixed);
        for (const char* folder : {"oldempty", "empty"})
            QVERIFY(QDir().mkpath(tree + u'/' + QLatin1String(folder)));
        writeFiles(flat, words(u"same.txt grows.txt gone.txt"_s), Fixed);
        const auto changeFiles = [](const QString& folder) {
            writeFile(folder + u"/grows.txt"_s, "grows.txt, grown");
            setTime(folder + u"/grows.txt"_s, Fixed);
            QVERIFY(QFile::remove(folder + u"/gone.txt"_s));
            writeFile(folder + u"/new.txt"_s, "new");
        };
        const auto changeTree = [&] {
            changeFiles(tree);
            setTime(tree + u"/dated.txt"_s, Fixed.addDays(1));
            QVERIFY(QFile::setPermissions(tree + u"/locked.txt"_s, QFileDevice::ReadOwner));
            writeFile(tree + u"/sub/changed.txt"_s, "changed beneath");
            for (const char* folder : {"oldonly", "oldempty"})
                QVERIFY(QDir(tree + u'/' + QLatin1String(folder)).removeRecursively());
            writeFiles(tree, {u"newdir/n.txt"_s}, Fixed);
        };

        QSet<QByteArray> seen;
        const std::pair<QString, std::function<void()>> pairs[] = {
            {tree, changeTree}, {flat, [&] { changeFiles(flat); }}};
        for (const auto& [folder, change] : pairs) {
            Frame frame(iniPath());
            QVERIFY(snapshotPair(frame, folder, change));
            for (SnapshotWindow* w : frame->snapshotWindows()) {
                expectTheCommandLinesRows(frame, *w, seen);
                if (QTest::currentTestFailed())
                    return;
            }
        }
        // Forty views, told apart by their modes and trees.
        QVERIFY2(seen.size() >= 24, qPrintable(QString::number(seen.size())));

        // A folder the show mode hides is no folder of that view.
        QCOMPARE(cli({u"export"_s, path(u"Pair.#02"_s), u"--compare"_s, path(u"Pair.#01"_s),
                      u"--show"_s, u"only"_s, u"--folder"_s, u"keep"_s}),
                 std::tuple(2, QByteArray(),
                            QByteArray("Folder Not Found: keep is not shown with --show only\n")));
    }

    // Without a printer there is nothing to print on; a PDF file chosen in
    // the print dialog is a device of its own, and one that cannot be
    // written is "Printing Error" with the dialog still up. The differences
    // box follows the window's comparison; the picture goes in landscape.
    // Print Preview paints the same report into Qt's preview. Its Print
    // button hands over the real printer; a PDF file chosen there is
    // written whole by Kestrel, and never through a link planted at its
    // name.
    void printAndPreview() {
        Frame frame(iniPath());
        SnapshotWindow* window = openSaved(frame);
        QVERIFY(window);
        PrintDialog& printer = frame->printDialog();
        printer.installedPrinters = [] { return QStringList(); };
        QString pdf = path(u"Work.pdf"_s);
        printer.choosePrinter = [&](QPrinter& device) {
            device.setOutputFormat(QPrinter::PdfFormat);
            device.setOutputFileName(pdf);
            return true;
        };
        QStringList errors;
        printer.printingError = [&](const engine::UserMessage& m) {
            errors << m.title + u": "_s + m.text;
        };

        frame.whileShowing<PrintDialog>([&](PrintDialog& print) {
            QCOMPARE(print.deviceLabel()->text(), u"No Printer Installed"_s);
            QVERIFY(!print.okButton()->isEnabled());
            QVERIFY(!print.differencesBox()->isChecked() && !print.differencesBox()->isEnabled());
            print.optOrient_Click(PrintDialog::Landscape);
            QVERIFY(print.picture()->isHidden());
            QCOMPARE(print.printer().pageLayout().orientation(), QPageLayout::Landscape);

            print.cmdPrinter_Click();
            QCOMPARE(print.deviceLabel()->text(), QDir::toNativeSeparators(pdf));
            QVERIFY(print.okButton()->isEnabled());
            print.cmdOK_Click();
        });
        frame.clickToolbar(u"Print"_s);
        QVERIFY(errors.isEmpty() && QFile::exists(pdf));

        pdf = path(u"missing/Work.pdf"_s);
        frame.whileShowing<PrintDialog>([&](PrintDialog& print) {
            print.cmdPrinter_Click();
            print.cmdOK_Click();
        });
        window->mnuFilePrint_Click();
        QCOMPARE(errors.size(), 1);
        QVERIFY(errors.first().startsWith(u"Printing Error: "_s));
        QVERIFY(!QFile::exists(pdf));

        // A compared window holds differences to print, except in the show
        // mode of entries only in this snapshot.
        writeFile(m_tree + u"/file03.txt"_s, "grown");
        frame.repeat(window);
        SnapshotWindow* newer = frame.second();
        QVERIFY(newer->compared());
        bool ticked = false, enabled = false;
        frame.whileShowing<PrintDialog>([&](PrintDialog& print) {
            ticked = print.differencesBox()->isChecked();
            enabled = print.differencesBox()->isEnabled();
        });
        newer->mnuFilePrint_Click();
        QVERIFY(ticked && enabled);
        newer->setShowPosition(1);
        newer->mnuFilePrint_Click();
        QVERIFY(!ticked && !enabled);
        newer->setChanged(false);

        errors.clear();
        int pages = 0;
        QString target;
        printer.showPreview = [&](QPrintPreviewDialog& preview) {
            auto* widget = preview.findChild<QPrintPreviewWidget*>();
            QVERIFY(widget);
            widget->updatePreview();
            pages = widget->pageCount();
            if (target.isEmpty())
                return;
            printer.printer().setOutputFormat(QPrinter::PdfFormat);
            printer.printer().setOutputFileName(target);
            widget->print();
        };
        window->mnuFilePrintPreview_Click();
        QCOMPARE(pages, 1);

        const QString preview = path(u"Preview.pdf"_s);
        const QString planted = path(u"Planted.pdf"_s);
        QVERIFY(QFile::link(path(u"victim"_s), planted));
        for (const QString& file : {preview, planted}) {
            target = file;
            window->mnuFilePrintPreview_Click();
        }
        QVERIFY(QFileInfo(preview).size() > 0);
        QCOMPARE(errors.size(), 1);
        QVERIFY(errors.first().startsWith(u"Printing Error: "_s));
        QVERIFY(errors.first().contains(planted));
        QVERIFY(!QFileInfo::exists(path(u"victim"_s)) && QFileInfo(planted).isSymLink());
    }
};

int main(int argc, char** argv) {
    return runWindowTest<OutputDialogsTest>(argc, argv);
}

#include "OutputDialogsTest.moc"
