// The snapshot window driven as a user drives it, over real temporary
// trees: two windows pairing and comparing, the show modes, colours (on
// selected rows too), sorting, the windows following each other's clicks,
// keys and scrolling, the status bar, the entry limit, the comparison root
// and branch, double-clicks and keys, commands refused while an operation
// runs, and a damaged file.

#include "TemporaryHome.h"
#include "TestFrame.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/support/Progress.h"
#include "engine/support/TextFormats.h"
#include "listing/Twips.h"
#include "settings/Settings.h"
#include "shell/MeterWindow.h"
#include "shell/SnapshotFileCommands.h"
#include "views/FileGridModel.h"
#include "views/FindBar.h"
#include "views/FolderTreeModel.h"
#include "views/Highlight.h"
#include "views/ShownListOf.h"
#include "views/SnapshotPair.h"
#include "views/SnapshotStatusBar.h"
#include "views/SnapshotWindow.h"
#include "views/SplitterBar.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kestrel;
using namespace Qt::StringLiterals;
using settings::Key;
using views::SnapshotWindow;

namespace {

const QDateTime Fixed(QDate(2024, 1, 1), QTime(12, 0));

// The names of the tree's nodes just under the top.
QStringList topFolders(const SnapshotWindow& w) {
    const views::FolderTreeModel& tree = w.treeModel();
    QStringList names;
    const QModelIndex top = tree.topIndex();
    for (int r = 0; r < tree.rowCount(top); ++r)
        names << tree.index(r, 0, top).data().toString();
    return names;
}

// The grid's names (In Folder and Name), in the order shown.
QStringList gridRows(const SnapshotWindow& w) {
    const engine::FileList& rows = w.gridModel().rows();
    QStringList names;
    for (int r = 0; r < rows.rowCount(); ++r)
        names << rows.inFolder(r) + rows.cellText(r, engine::NameColumn);
    return names;
}

int rowNamed(const SnapshotWindow& w, const QString& name) {
    return int(gridRows(w).indexOf(name));
}

QVariant cell(const SnapshotWindow& w, const QString& name, int column, int role) {
    const int row = rowNamed(w, name);
    return w.gridModel().index(row, column).data(role);
}

// Clicks a folder in a window's tree with the mouse, as a user does.
void clickNode(const SnapshotWindow& w, const QString& key) {
    const QModelIndex node = w.treeModel().indexOfKey(key, w.nameMatching());
    QVERIFY2(node.isValid(), qPrintable(key));
    w.tree()->scrollTo(node);
    QTest::mouseClick(w.tree()->viewport(), Qt::LeftButton, {},
                      w.tree()->visualRect(node).center());
}

// What a comparison wrote into a snapshot: each entry's status and match.
QList<qint64> comparison(const SnapshotWindow& w) {
    QList<qint64> fields;
    const engine::Snapshot& s = w.snapshot();
    for (int32_t i = 0; i <= s.entryCount; ++i)
        fields << s.entries.get(i).status << s.entries.get(i).match;
    return fields;
}

// What a window shows: the folder, the show selector, the sort, the root,
// the rows and the status bar.
QStringList shown(const SnapshotWindow& w) {
    QStringList state{w.selectedKey(),
                      QString::number(w.showSelector()->currentIndex()),
                      QString::number(w.sortColumn()),
                      QString::number(w.sortDescending()),
                      w.rootKey(),
                      QString::number(w.showsSubFolders()),
                      QString::number(w.grid()->verticalScrollBar()->value())};
    for (int panel = 1; panel <= 4; ++panel)
        state << w.statusBar()->panelText(panel);
    const engine::FileList& rows = w.gridModel().rows();
    for (int r = 0; r < rows.rowCount(); ++r)
        state << rows.inFolder(r) + rows.cellText(r, engine::NameColumn);
    return state;
}

// A grid cell as drawn, inside its edges: the commonest colour is its
// background, the one that stands out most from that its text.
struct PaintedCell {
    QColor background, text;
    double contrast() const { return views::contrastRatio(text, background); }
};

PaintedCell paintedCell(const SnapshotWindow& w, int row, int column) {
    const QRect cell = w.grid()->visualRect(w.gridModel().index(row, column));
    const QImage image = w.grid()->viewport()->grab(cell.adjusted(2, 2, -2, -2)).toImage();
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            ++counts[image.pixel(x, y)];
    QRgb background = counts.constBegin().key();
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        if (it.value() > counts.value(background))
            background = it.key();
    PaintedCell painted{QColor(background), QColor(background)};
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        if (views::contrastRatio(QColor(it.key()), painted.background) > painted.contrast())
            painted.text = QColor(it.key());
    return painted;
}

QColor colourOf(const QVariant& brush) {
    return brush.value<QBrush>().color();
}

} // namespace

class SnapshotWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree;

    QString iniPath() const { return m_dir->filePath(u"Kestrel.ini"_s); }

    // The tree changes: a.txt grows, sub/b.txt gets another date, new.txt
    // and newdir/ appear, gone/old.txt goes.
    void changeTree() {
        writeFile(m_tree + u"/a.txt"_s, "alpha beta");
        setTime(m_tree + u"/a.txt"_s, Fixed);
        setTime(m_tree + u"/sub/b.txt"_s, Fixed.addDays(3));
        writeFile(m_tree + u"/new.txt"_s, "new");
        QVERIFY(QDir().mkpath(m_tree + u"/newdir"_s));
        writeFile(m_tree + u"/newdir/n.txt"_s, "n");
        QVERIFY(QFile::remove(m_tree + u"/gone/old.txt"_s));
    }
    // The first snapshot of the tree, the tree changed, then Repeat makes
    // the second window, which pairs and compares.
    void makePair(Frame& frame) {
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        changeTree();
        shell::mnuFileRepeat_Click(*frame.window, *frame->activeSnapshotWindow());
        QCOMPARE(frame->snapshotWindows().size(), 2);
    }
    // The frame on screen and active, large enough for both windows: the
    // mouse and the keys reach it as a user's do.
    void showActive(Frame& frame) {
        frame->resize(1400, 900);
        frame->show();
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
    }
    SnapshotWindow* first(Frame& frame) { return frame->snapshotWindows().first(); }
    SnapshotWindow* second(Frame& frame) { return frame->snapshotWindows().last(); }

private Q_SLOTS:
    void init() {
        QSettings(u"Kestrel"_s, u"Kestrel"_s).clear();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_tree = m_dir->filePath(u"Tree"_s);
        for (const char* folder : {"sub", "gone"})
            QVERIFY(QDir().mkpath(m_tree + u'/' + QLatin1String(folder)));
        const std::pair<const char*, QByteArray> files[] = {{"a.txt", "alpha"},
                                                            {"keep.txt", "keep"},
                                                            {"sub/b.txt", "bravo bravo"},
                                                            {"sub/c.bin", QByteArray(1000, 'c')},
                                                            {"gone/old.txt", "old"}};
        for (const auto& [name, contents] : files) {
            writeFile(m_tree + u'/' + QLatin1String(name), contents);
            setTime(m_tree + u'/' + QLatin1String(name), Fixed);
        }
    }

    // A snapshot taken with content fingerprints is repeated with them: a
    // file only touched is no change, a renamed file shows where it went in
    // the Moved column of both windows, and the summary counts the move.
    void fingerprintsAndMovesShowInTheGrid() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1, true));
        QVERIFY(frame->activeSnapshotWindow()->snapshot().fingerprints.taken());
        setTime(m_tree + u"/sub/b.txt"_s, Fixed.addDays(3));
        QVERIFY(QFile::rename(m_tree + u"/keep.txt"_s, m_tree + u"/kept.txt"_s));
        QVERIFY(QFile::rename(m_tree + u"/sub/c.bin"_s, m_tree + u"/gone/c.bin"_s));
        frame->Toolbar1_ButtonClick(u"Repeat"_s);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer && newer->snapshot().fingerprints.taken() && newer->compared());

        QVERIFY2(newer->statusBar()->panelText(2).endsWith(u", 2 moved files"_s),
                 qPrintable(newer->statusBar()->panelText(2)));
        QVERIFY(!newer->grid()->isColumnHidden(engine::MovedColumn));
        QCOMPARE(cell(*newer, u"kept.txt"_s, engine::MovedColumn, Qt::DisplayRole).toString(),
                 u"from keep.txt"_s);
        QCOMPARE(cell(*older, u"keep.txt"_s, engine::MovedColumn, Qt::DisplayRole).toString(),
                 u"to kept.txt"_s);

        QVERIFY(newer->selectFolder(u"/sub/"_s));
        QVERIFY(!cell(*newer, u"b.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole).isValid());
        QVERIFY(!newer->grid()->isColumnHidden(engine::FingerprintColumn));
        QCOMPARE(
            cell(*newer, u"b.txt"_s, engine::FingerprintColumn, Qt::DisplayRole).toString().size(),
            32);

        // "All Differences" lists what moved; a double-click on the Moved
        // cell goes to the other end of the move in the paired window.
        QTest::keyClick(newer->showSelector(), Qt::Key_End);
        QCOMPARE(newer->showMode(), engine::ShowMode::Differences);
        QVERIFY(gridRows(*newer).contains(u"kept.txt"_s));
        clickNode(*older, u"/sub/"_s);
        QCOMPARE(cell(*older, u"c.bin"_s, engine::MovedColumn, Qt::ToolTipRole).toString(),
                 u"Moved to gone/c.bin"_s);
        const QModelIndex moved =
            older->gridModel().index(rowNamed(*older, u"c.bin"_s), engine::MovedColumn);
        older->grid()->scrollTo(moved); // the column is far to the right
        const QPoint movedCell = older->grid()->visualRect(moved).center();
        QTest::mouseClick(older->grid()->viewport(), Qt::LeftButton, {}, movedCell);
        QTRY_COMPARE(frame->activeSnapshotWindow(), older);
        QTest::mouseDClick(older->grid()->viewport(), Qt::LeftButton, {}, movedCell);
        QCOMPARE(newer->selectedKey(), u"/gone/"_s);
        QCOMPARE(newer->grid()->currentIndex().row(), rowNamed(*newer, u"c.bin"_s));
        QVERIFY(newer->grid()->hasFocus());
    }

    void pairingComparesAtOnceAndShowsTheChanges() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* alone = frame->activeSnapshotWindow();
        QVERIFY(!alone->compared());
        QCOMPARE(alone->showMode(), engine::ShowMode::None);
        QCOMPARE(alone->statusBar()->panelText(2),
                 u"Click New, Open or Repeat to provide the second Snapshot"_s);
        QVERIFY(!frame->toolbarButton(u"Compare"_s)->isEnabled());
        // The window's own menus stand in the frame's menu bar.
        QStringList titles;
        for (const QAction* menu : frame->menuBar()->actions())
            titles << menu->text();
        QCOMPARE(titles, (QStringList{u"&File"_s, u"&Edit"_s, u"&Compare"_s, u"&View"_s,
                                      u"&Window"_s, u"&Help"_s}));

        changeTree();
        // Repeat from the toolbar, as a user would.
        frame->Toolbar1_ButtonClick(u"Repeat"_s);
        QCOMPARE(frame->snapshotWindows().size(), 2);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QCOMPARE(frame->activeSnapshotWindow(), newer);
        QCOMPARE(newer->pairedWindow(), older);
        QCOMPARE(older->pairedWindow(), newer);
        for (SnapshotWindow* w : {older, newer}) {
            QVERIFY(w->compared());
            QCOMPARE(w->showMode(), engine::ShowMode::All);
            QCOMPARE(w->showSelector()->currentText(), u"All Files/Dirs in this Snapshot"_s);
        }
        QCOMPARE(newer->statusBar()->panelText(2),
                 u"1 extra file, 1 extra folder, 1 file changed, 1 folder with changes"_s);
        QCOMPARE(older->statusBar()->panelText(2), u"1 file changed, 2 folders with changes"_s);
        // The filler takes what the columns leave: no sideways scrolling
        // once the window is wide enough for the columns.
        QHeaderView* header = newer->grid()->horizontalHeader();
        QVERIFY(!newer->grid()->isColumnHidden(engine::PermissionsColumn));
        QCOMPARE(header->visualIndex(engine::PermissionsColumn),
                 header->visualIndex(engine::AttributesColumn) + 1);
        const int columns = header->length() - header->sectionSize(engine::FillerColumn);
        QWidget* sub = newer->parentWidget();
        sub->resize(sub->width() + columns, sub->height());
        QTRY_COMPARE(header->length(), newer->grid()->viewport()->width());
        for (const char* button : {"New", "Open", "Repeat"})
            QVERIFY(!frame->toolbarButton(QLatin1String(button))->isEnabled());
        QVERIFY(frame->toolbarButton(u"Compare"_s)->isEnabled() &&
                frame->toolbarButton(u"Save As"_s)->isEnabled());

        // Names sorted, an unmatched row in the "No Match" colour as its
        // text, changed values on the "Changed" colour.
        QCOMPARE(gridRows(*newer), words(u"a.txt gone keep.txt new.txt newdir sub"_s));
        const QColor red(255, 0, 0), cyan(0, 255, 255);
        for (int column = engine::NameColumn; column <= engine::VersionColumn; ++column)
            QCOMPARE(colourOf(cell(*newer, u"new.txt"_s, column, Qt::ForegroundRole)), red);
        QCOMPARE(colourOf(cell(*newer, u"a.txt"_s, engine::SizeColumn, Qt::BackgroundRole)), cyan);
        QVERIFY(!cell(*newer, u"a.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole).isValid());
        QVERIFY(!cell(*newer, u"keep.txt"_s, engine::NameColumn, Qt::ForegroundRole).isValid());
        QCOMPARE(colourOf(cell(*newer, u"sub"_s, engine::NameColumn, Qt::BackgroundRole)), cyan);
        // Folders are coloured in the tree the same way.
        const auto node = [](const SnapshotWindow* w, const QString& key) {
            return w->treeModel().indexOfKey(key, engine::NameMatching::Exact);
        };
        QCOMPARE(colourOf(node(newer, u"/newdir/"_s).data(Qt::ForegroundRole)), red);
        QCOMPARE(colourOf(node(newer, u"/sub/"_s).data(Qt::BackgroundRole)), cyan);
        QVERIFY(!node(newer, u"/gone/"_s).data(Qt::BackgroundRole).isValid());
        QCOMPARE(colourOf(node(older, u"/gone/"_s).data(Qt::BackgroundRole)), cyan);
        // A file of another date: its Modified cell.
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        QCOMPARE(colourOf(cell(*newer, u"b.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole)),
                 cyan);
        QVERIFY(newer->selectFolder(u"/"_s));

        // A click on the Permissions heading sorts the rows by that column.
        const QPoint heading(header->sectionViewportPosition(engine::PermissionsColumn) + 4,
                             header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, heading);
        QCOMPARE(newer->sortColumn(), engine::PermissionsColumn + 1);
        QCOMPARE(gridRows(*newer).first(), u"a.txt"_s); // -rw before drw
        QCOMPARE(gridRows(*newer).last(), u"sub"_s);

        // The pair ends with either window: the one left is alone again.
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(newer->parentWidget()->close());
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QTRY_VERIFY(!older->compared());
        QCOMPARE(older->pairedWindow(), nullptr);
        QCOMPARE(older->showMode(), engine::ShowMode::None);
        QCOMPARE(older->statusBar()->panelText(2),
                 u"Click New, Open or Repeat to provide the second Snapshot"_s);
        QVERIFY(frame->toolbarButton(u"Repeat"_s)->isEnabled());
    }

    // A file that became set-user-ID is called out first in the summary,
    // its name bold in the "No Match" colour; a changed owner-write bit is
    // a permission change even with no attribute compared.
    void dangerousAccessIsCalledOut() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(QFile::setPermissions(m_tree + u"/keep.txt"_s,
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QCOMPARE(::chmod(QFile::encodeName(m_tree + u"/keep.txt"_s).constData(), 04750), 0);
        QCOMPARE(::chmod(QFile::encodeName(m_tree + u"/a.txt"_s).constData(), 0444), 0);
        QTest::keyClick(frame.window.get(), Qt::Key_R, Qt::ControlModifier);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer && newer->compared());
        QCOMPARE(newer->statusBar()->panelText(2),
                 u"1 new set-user-ID file, 2 changed files, 2 permission changes"_s);
        QCOMPARE(colourOf(cell(*newer, u"keep.txt"_s, engine::NameColumn, Qt::ForegroundRole)),
                 QColor(255, 0, 0));
        QVERIFY(
            cell(*newer, u"keep.txt"_s, engine::NameColumn, Qt::FontRole).value<QFont>().bold());
        QVERIFY(!cell(*newer, u"a.txt"_s, engine::NameColumn, Qt::FontRole).isValid());
        // The older side has nothing to call out.
        QCOMPARE(first(frame)->statusBar()->panelText(2),
                 u"2 changed files, 2 permission changes"_s);
    }

    void openingTwoSavedSnapshotsPairsThemToo() {
        const QString before = m_dir->filePath(u"Tree.#01"_s);
        const QString after = m_dir->filePath(u"Tree.#02"_s);
        {
            Frame maker(iniPath());
            makePair(maker);
            maker.saveAnswer = before;
            shell::mnuFileSaveAs_Click(*maker.window, *first(maker));
            maker.saveAnswer = after;
            shell::mnuFileSaveAs_Click(*maker.window, *second(maker));
            QCOMPARE(maker.proposedSave, m_dir->path() + u"/Tree.#02"_s);
        }
        Frame frame(iniPath());
        QVERIFY(frame->OpenSnapshot(before));
        QVERIFY(frame->OpenSnapshot(after));
        QVERIFY(second(frame)->compared());
        QCOMPARE(second(frame)->statusBar()->panelText(2),
                 u"1 extra file, 1 extra folder, 1 file changed, 1 folder with changes"_s);
    }

    // Save As (Ctrl+S) proposes the number after the highest, a link at a
    // name counting as taken; a link chosen is refused with its name and
    // nothing is written where it points; when the 99th exists it is
    // proposed again, and replacing it is the save dialog's question.
    void saveAsNumbersAfterTheHighestAndWritesThroughNoLink() {
        writeFile(m_dir->filePath(u"Tree.#02"_s), "second");
        const QString victim = m_dir->filePath(u"victim"_s);
        const QString link = m_dir->filePath(u"Tree.#03"_s);
        QVERIFY(QFile::link(victim, link));
        Frame frame(iniPath());
        frame->show();
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
        frame->setLastFolder(m_dir->path());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        const auto saveAs = [&](const QString& answer) {
            frame.saveAnswer = answer;
            QTest::keyClick(frame.window.get(), Qt::Key_S, Qt::ControlModifier);
        };

        saveAs(link);
        QCOMPARE(frame.proposedSave, m_dir->path() + u"/Tree.#04"_s);
        QCOMPARE(frame.messages,
                 QStringList{u"Error Writing Snapshot: "_s + link +
                             u" is a symbolic link; Kestrel does not write over links"_s});
        QCOMPARE(QFileInfo(link).symLinkTarget(), victim);
        QVERIFY(!QFileInfo::exists(victim));
        QVERIFY(w->changed());
        QVERIFY(w->snapshot().header.fileName.isEmpty());

        const QString last = m_dir->filePath(u"Tree.#99"_s);
        writeFile(last, "last");
        saveAs(last);
        QCOMPARE(frame.proposedSave, last);
        QVERIFY(!w->changed());
        QCOMPARE(w->snapshot().header.fileName, last);
        QVERIFY(readFile(last).startsWith("Snapshot #1 of "));
    }

    void showModesFilterTreeAndGrid() {
        Frame frame(iniPath());
        makePair(frame);
        SnapshotWindow* w = second(frame);
        const QString all =
            u"1 extra file, 1 extra folder, 1 file changed, 1 folder with changes"_s;
        const QString changed = u"1 file changed, 1 folder with changes"_s;
        const struct {
            QString folders, rows, summary;
        } expected[] = {
            {u"gone newdir sub"_s, u"a.txt gone keep.txt new.txt newdir sub"_s, all},
            {u"newdir sub"_s, u"new.txt newdir sub"_s,
             u"1 extra file, 1 extra folder, 1 folder with changes"_s},
            {u"sub"_s, u"a.txt keep.txt sub"_s, changed},
            {u"sub"_s, u"a.txt sub"_s, changed},
            {u"newdir sub"_s, u"a.txt new.txt newdir sub"_s, all},
        };
        for (int position = 0; position < 5; ++position) {
            w->selectFolder(u"/"_s);
            w->setShowPosition(position);
            QCOMPARE(int(w->showMode()), position + 1);
            QCOMPARE(topFolders(*w), words(expected[position].folders));
            QCOMPARE(gridRows(*w), words(expected[position].rows));
            QCOMPARE(w->statusBar()->panelText(2), expected[position].summary);
        }
        // A folder selected before a change of mode is selected after it
        // while it stays visible.
        w->setShowPosition(0);
        QVERIFY(w->selectFolder(u"/newdir/"_s));
        w->setShowPosition(1);
        QCOMPARE(w->selectedKey(), u"/newdir/"_s);
        w->setShowPosition(2);
        QCOMPARE(w->selectedKey(), u"/"_s);

        // A folder where nothing differs says so.
        w->setShowPosition(0);
        QVERIFY(w->selectFolder(u"/gone/"_s));
        QCOMPARE(w->statusBar()->panelText(2), u"No changes in selected folder"_s);
    }

    void sortingByHeaderAndTheFasterRestriction() {
        Frame frame(iniPath());
        makePair(frame);
        SnapshotWindow* w = second(frame);
        QHeaderView* header = w->grid()->horizontalHeader();
        QVERIFY(w->action(u"mnuViewScroll"_s)->isChecked());
        Q_EMIT header->sectionClicked(engine::NameColumn);
        // Name was the sort column already: the order turns round.
        QCOMPARE(gridRows(*w), words(u"sub newdir new.txt keep.txt gone a.txt"_s));
        QVERIFY(!w->action(u"mnuViewScroll"_s)->isChecked());
        Q_EMIT header->sectionClicked(engine::SizeColumn);
        QCOMPARE(w->sortColumn(), SnapshotWindow::SortBySize);
        QVERIFY(!w->sortDescending());
        // Folders count 0 bytes and keep their order; the files follow by size.
        const QStringList bySize = gridRows(*w);
        QCOMPARE(bySize.mid(3), words(u"new.txt keep.txt a.txt"_s));
        QCOMPARE(w->grid()->currentIndex().row(), 0);

        // Scrolling together asks for name order again.
        w->mnuViewScroll_Click();
        QVERIFY(w->action(u"mnuViewScroll"_s)->isChecked());
        QCOMPARE(w->sortColumn(), SnapshotWindow::SortByName);
        QVERIFY(!w->sortDescending());
        QCOMPARE(gridRows(*w).first(), u"a.txt"_s);

        // With the faster option on when the window was made, the key
        // columns cannot be sorted, even after the option goes off.
        frame->options().setValue(Key::Faster, 1);
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(w->parentWidget()->close());
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        shell::mnuFileRepeat_Click(*frame.window, *first(frame));
        SnapshotWindow* fast = second(frame);
        frame->options().setValue(Key::Faster, 0);
        frame.messages.clear();
        const QStringList before = gridRows(*fast);
        for (const int column : {SnapshotWindow::SortBySize, SnapshotWindow::SortByModified,
                                 SnapshotWindow::SortByAttributes})
            fast->SortSequence(column);
        QCOMPARE(frame.messages.size(), 3);
        QCOMPARE(frame.messages.first(),
                 u"Sorting Restriction: Cannot sort by Size, Modified or Attributes when "
                 "'Optimise for speed and capacity' is enabled (see Options and Preferences). "
                 "All open Snapshots must then be saved and re-opened to fully enable column "
                 "sorting."_s);
        QCOMPARE(gridRows(*fast), before);
        QCOMPARE(fast->gridModel().index(0, engine::SizeKeyColumn).data().toString(), QString());
        fast->SortSequence(4); // Type still sorts
        QCOMPARE(fast->sortColumn(), 4);
    }

    // Clicks with the mouse in either window, and the arrow keys, select
    // the folder in the other window too, or say it has none, and a mode
    // that filters says it may be hiding it; with synchronisation off they
    // stay apart, and clicking the folder selected already brings the other
    // window back to it. Without automatic comparison, Compare Now asks for
    // the options first, and a comparison root waits for it too.
    void foldersFollowInTheOtherWindow() {
        Frame frame(iniPath());
        showActive(frame);
        frame->options().setValue(Key::Compare, 0);
        makePair(frame);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(!newer->compared()); // no automatic comparison
        // Compare Now asks for the options first, with this window's caption
        // and the other's; "Compare &Both" compares.
        QStringList boxes;
        frame.whileShown = [&](QDialog& dialog) {
            boxes << dialog.findChild<QLineEdit*>(u"txtSnap"_s)->text()
                  << dialog.findChild<QLineEdit*>(u"txtOther"_s)->text();
            dialog.findChild<QPushButton*>(u"cmdCompare1"_s)->click();
            return int(QDialog::Accepted);
        };
        newer->mnuCompareNow_Click();
        QCOMPARE(boxes, (QStringList{newer->caption(), older->caption()}));
        QVERIFY(newer->compared() && older->compared());

        const QStringList subRows = words(u"b.txt c.bin"_s);
        for (const auto& [from, to] : {std::pair{newer, older}, std::pair{older, newer}}) {
            clickNode(*from, u"/sub/"_s);
            QCOMPARE(frame->activeSnapshotWindow(), from);
            QCOMPARE(from->selectedKey(), u"/sub/"_s);
            QCOMPARE(gridRows(*from), subRows);
            QCOMPARE(to->selectedKey(), u"/sub/"_s);
            QCOMPARE(gridRows(*to), subRows);
            QCOMPARE(to->statusBar()->panelText(1), m_tree + u"/sub/"_s);
            clickNode(*from, u"/"_s);
            QCOMPARE(to->selectedKey(), u"/"_s);
        }

        clickNode(*newer, u"/newdir/"_s);
        QCOMPARE(gridRows(*newer), words(u"n.txt"_s));
        QCOMPARE(older->selectedKey(), QString());
        QCOMPARE(older->gridModel().rowCount(), 0);
        QCOMPARE(older->statusBar()->panelText(1), u"No matching folder"_s);
        QCOMPARE(older->statusBar()->panelText(2), QString());

        // Synchronisation off (View menu): apart; the selected folder
        // clicked again once it is on.
        newer->mnuViewSynch_Click();
        QCOMPARE(frame->options().value(Key::Synch), int16_t(0));
        QVERIFY(!newer->action(u"mnuViewSynch"_s)->isChecked());
        QVERIFY(!older->action(u"mnuViewScroll"_s)->isChecked());
        clickNode(*newer, u"/sub/"_s);
        clickNode(*older, u"/gone/"_s);
        QCOMPARE(newer->selectedKey(), u"/sub/"_s);
        frame->options().setValue(Key::Synch, 1);
        clickNode(*newer, u"/sub/"_s);
        QCOMPARE(older->selectedKey(), u"/sub/"_s);
        QCOMPARE(gridRows(*older), subRows);

        // The arrow keys: up from sub to newdir (only here), then gone.
        QTest::keyClick(newer->tree(), Qt::Key_Up);
        QCOMPARE(newer->selectedKey(), u"/newdir/"_s);
        QCOMPARE(gridRows(*newer), words(u"n.txt"_s));
        QCOMPARE(older->statusBar()->panelText(1), u"No matching folder"_s);
        QTest::keyClick(newer->tree(), Qt::Key_Up);
        QCOMPARE(older->selectedKey(), u"/gone/"_s);
        QCOMPARE(gridRows(*older), words(u"old.txt"_s));

        // Every mode that filters may be hiding a folder the other snapshot
        // lacks, and they all say so; "All" cannot be. The mode is chosen
        // in the show selector with the keyboard.
        auto* selector = older->findChild<QComboBox*>(u"cboShow"_s);
        QVERIFY(selector);
        for (const int position : {0, 1, 2, 3, 4}) {
            selector->setFocus();
            QTest::keyClick(selector, Qt::Key_Home);
            for (int step = 0; step < position; ++step)
                QTest::keyClick(selector, Qt::Key_Down);
            QCOMPARE(selector->currentIndex(), position);
            clickNode(*newer, u"/newdir/"_s);
            QCOMPARE(older->statusBar()->panelText(1),
                     position >= 1 ? u"No matching folder visible"_s : u"No matching folder"_s);
            // Another folder this mode hides there.
            if (position == 2) {
                clickNode(*newer, u"/gone/"_s);
                QCOMPARE(older->statusBar()->panelText(1), u"No matching folder visible"_s);
            }
        }
        // Nor can the uncompared window.
        older->setShowPosition(-1);
        clickNode(*newer, u"/newdir/"_s);
        QCOMPARE(older->statusBar()->panelText(1), u"No matching folder"_s);
        QCOMPARE(older->showMode(), engine::ShowMode::None);
        views::CompareSnapshot(*older, true);

        // The comparison root is the pair's: set in one window, it is set
        // in the other too; without automatic comparison both wait for
        // Compare Now, which compares root with root.
        older->setShowPosition(0);
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        newer->mnuCompareRoot_Click();
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(w->rootKey(), u"sub/"_s);
            QVERIFY(!w->compared());
        }
        QCOMPARE(older->selectedKey(), u"/sub/"_s);
        newer->mnuCompareNow_Click();
        frame.whileShown = nullptr;
        QVERIFY(older->compared());
        QCOMPARE(newer->statusBar()->panelText(2), u"1 file changed"_s);
        // The root survives rebuilds, and the Compare menu marks it.
        newer->setShowPosition(3);
        QCOMPARE(newer->rootKey(), u"sub/"_s);
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        Q_EMIT newer->menus().at(2)->aboutToShow();
        QVERIFY(newer->action(u"mnuCompareRoot"_s)->isChecked());
        QVERIFY(newer->selectFolder(u"/"_s));
        Q_EMIT newer->menus().at(2)->aboutToShow();
        QVERIFY(!newer->action(u"mnuCompareRoot"_s)->isChecked());

        constexpr auto Exact = engine::NameMatching::Exact;
        constexpr auto AnyCase = engine::NameMatching::IgnoreCase;
        QCOMPARE(views::translateKey(u"/sub/x/"_s, u"sub/"_s, QString(), Exact), u"/x/"_s);
        QCOMPARE(views::translateKey(u"/x/"_s, QString(), u"Sub/"_s, Exact), u"/Sub/x/"_s);
        QCOMPARE(views::translateKey(u"/other/"_s, u"sub/"_s, u"a/"_s, Exact), u"/other/"_s);
        QCOMPARE(views::translateKey(u"/SUB/x/"_s, u"sub/"_s, u"a/"_s, Exact), u"/SUB/x/"_s);
        QCOMPARE(views::translateKey(u"/SUB/x/"_s, u"sub/"_s, u"a/"_s, AnyCase), u"/a/x/"_s);
    }

    // Snapshots made on POSIX tell names apart exactly: twins that differ
    // only in case are each followed to themselves in the other window, by
    // selection and by scrolling, and twins added beside others are entries
    // only in their snapshot.
    void caseTwinsAreFollowedExactly() {
        const QString twins = m_dir->filePath(u"Twins"_s);
        QStringList files = {u"Dir/upper"_s, u"dir/lower"_s, u"README"_s, u"readme"_s, u"run.sh"_s};
        for (int i = 0; i < 60; ++i)
            files << u"m%1"_s.arg(i, 2, 10, QLatin1Char('0'))
                  << u"z%1"_s.arg(i, 2, 10, QLatin1Char('0'));
        for (const QString& file : files) {
            QVERIFY(QDir().mkpath(QFileInfo(twins + u'/' + file).path()));
            writeFile(twins + u'/' + file, "same");
            setTime(twins + u'/' + file, Fixed);
        }
        Frame frame(iniPath());
        frame->resize(1000, 800);
        frame->show();
        QVERIFY(frame->NewSnapshot(twins, true, true, false, 1));
        for (const QString& added : {u"RUN.sh"_s, u"DIR/x"_s}) {
            QVERIFY(QDir().mkpath(QFileInfo(twins + u'/' + added).path()));
            writeFile(twins + u'/' + added, "same");
            setTime(twins + u'/' + added, Fixed);
        }
        shell::mnuFileRepeat_Click(*frame.window, *frame->activeSnapshotWindow());
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer->compared());
        QCOMPARE(newer->statusBar()->panelText(2), u"1 extra file, 1 extra folder"_s);
        QCOMPARE(older->statusBar()->panelText(2), u"No changes in selected folder"_s);
        QVERIFY(newer->selectFolder(u"/"_s));
        newer->setShowPosition(1);
        QCOMPARE(gridRows(*newer), (QStringList{u"DIR"_s, u"RUN.sh"_s}));
        newer->setShowPosition(0);

        for (const QString& name : {u"dir"_s, u"Dir"_s}) {
            QVERIFY(newer->selectFolder(u'/' + name + u'/'));
            QCOMPARE(older->selectedKey(), u'/' + name + u'/');
            QCOMPARE(gridRows(*older), gridRows(*newer));
        }

        QVERIFY(newer->selectFolder(u"/"_s));
        for (const QString& name : {u"README"_s, u"readme"_s}) {
            newer->grid()->verticalScrollBar()->setValue(rowNamed(*newer, name));
            QCOMPARE(gridRows(*newer).at(newer->topRow()), name);
            QCOMPARE(gridRows(*older).at(older->topRow()), name);
        }
    }

    // Entries the ignore patterns leave out are neither listed nor coloured:
    // the change summary counts them apart, and View > Show Ignored Entries
    // (Alt+V, I) lists them greyed in tree and grid.
    void ignoredEntriesAreLeftOutOrGreyed() {
        Frame frame(iniPath());
        showActive(frame);
        frame->options().setPatterns(u"new*\n/gone/\n"_s);
        makePair(frame);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer->compared());
        clickNode(*newer, u"/"_s);
        // new.txt and newdir/ (with n.txt) are ignored in the newer window,
        // gone/ in both (with old.txt in the older): a.txt and sub/ are
        // left changed.
        const QString changes = u"1 file changed, 1 folder with changes, "_s;
        QCOMPARE(newer->statusBar()->panelText(2), changes + u"4 ignored"_s);
        QCOMPARE(older->statusBar()->panelText(2), changes + u"2 ignored"_s);
        for (const QString& name : {u"new.txt"_s, u"newdir"_s, u"gone"_s})
            QCOMPARE(rowNamed(*newer, name), -1);
        QVERIFY(!newer->treeModel().indexOfKey(u"/newdir/"_s, newer->nameMatching()).isValid());
        // Find Next passes them by too.
        QTest::keyClick(newer->grid(), Qt::Key_F, Qt::ControlModifier);
        QTest::keyClicks(newer->findBar()->textBox(), u"new"_s);
        QVERIFY(!newer->findBar()->findNext());
        QTest::keyClick(newer->findBar()->textBox(), Qt::Key_Escape);

        QWindow* handle = frame->windowHandle();
        handle->requestActivate();
        QTRY_COMPARE(QGuiApplication::focusWindow(), handle);
        QTest::keyClick(frame.window.get(), Qt::Key_V, Qt::AltModifier);
        QTRY_VERIFY(QApplication::activePopupWidget());
        QTest::keyClick(QApplication::activePopupWidget(), Qt::Key_I);
        QTRY_VERIFY(newer->action(u"mnuViewIgnored"_s)->isChecked());
        const QModelIndex ignoredNode =
            newer->treeModel().indexOfKey(u"/newdir/"_s, newer->nameMatching());
        QVERIFY(ignoredNode.isValid());
        const QColor grey = colourOf(ignoredNode.data(Qt::ForegroundRole));
        QVERIFY(grey.isValid());
        QVERIFY(rowNamed(*newer, u"new.txt"_s) >= 0);
        QCOMPARE(colourOf(cell(*newer, u"new.txt"_s, engine::NameColumn, Qt::ForegroundRole)),
                 grey);
        QVERIFY(!cell(*newer, u"new.txt"_s, engine::NameColumn, Qt::BackgroundRole).isValid());
        // Still not differences.
        QCOMPARE(newer->statusBar()->panelText(2), changes + u"4 ignored"_s);
        // The other window keeps its own choice.
        QCOMPARE(rowNamed(*older, u"gone"_s), -1);
    }

    // Ctrl+F opens the find bar; typing filters the folder's rows as it is
    // typed, Enter and F3 go to the next name anywhere in the snapshot with
    // the paired window following, and Esc lists the folder whole again.
    void findBarFiltersAndFindsAcrossFolders() {
        Frame frame(iniPath());
        showActive(frame);
        makePair(frame);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        clickNode(*newer, u"/"_s);
        const QStringList whole = gridRows(*newer);
        QTest::keyClick(newer->grid(), Qt::Key_F, Qt::ControlModifier);
        QLineEdit* text = newer->findBar()->textBox();
        QVERIFY(text->isVisible());
        QVERIFY(newer->grid()->geometry().top() >= newer->findBar()->geometry().bottom());
        QTRY_VERIFY(text->hasFocus());

        const auto filtered = [&](const QString& part) {
            QStringList rows;
            for (const QString& name : whole)
                if (name.contains(part, Qt::CaseInsensitive))
                    rows << name;
            return rows;
        };
        QTest::keyClicks(text, u"E"_s);
        QCOMPARE(gridRows(*newer), filtered(u"e"_s));
        QTest::keyClicks(text, u"W"_s);
        QCOMPARE(gridRows(*newer), filtered(u"ew"_s));
        QCOMPARE(newer->statusBar()->panelText(3),
                 u"Find: %1 of %2 rows"_s.arg(filtered(u"ew"_s).size()).arg(whole.size()));
        text->clear();
        QTest::keyClicks(text, u"*.TXT"_s);
        QCOMPARE(gridRows(*newer), filtered(u".txt"_s));
        // Export takes what is shown.
        QCOMPARE(shownListOf(*newer).rows->rowCount(), filtered(u".txt"_s).size());

        // Nothing here is called b.txt: Enter goes to sub/, and the other
        // window follows.
        text->clear();
        QTest::keyClicks(text, u"b.txt"_s);
        QCOMPARE(newer->gridModel().rowCount(), 0);
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(newer->selectedKey(), u"/sub/"_s);
        QCOMPARE(gridRows(*newer), words(u"b.txt"_s));
        QCOMPARE(newer->grid()->currentIndex().row(), 0);
        QCOMPARE(older->selectedKey(), u"/sub/"_s);
        QCOMPARE(gridRows(*older), words(u"b.txt c.bin"_s));

        // F3 goes round every folder holding the name and back.
        text->clear();
        QTest::keyClicks(text, u"n*.txt"_s);
        QStringList visited;
        for (int press = 0; press < 3; ++press) {
            QTest::keyClick(newer->grid(), Qt::Key_F3);
            const QModelIndex current = newer->grid()->currentIndex();
            QVERIFY(current.isValid());
            visited << newer->selectedKey() + current.data().toString().trimmed();
        }
        QCOMPARE(visited.first(), visited.last());
        QVERIFY(visited.contains(u"/new.txt"_s));
        QVERIFY(visited.contains(u"/newdir/n.txt"_s));

        text->setFocus();
        QTest::keyClick(text, Qt::Key_Escape);
        QVERIFY(!newer->findBar()->isVisible());
        clickNode(*newer, u"/"_s);
        QCOMPARE(gridRows(*newer), whole);
        QVERIFY(!newer->statusBar()->panelText(3).startsWith(u"Find:"_s));
    }

    // While a comparison runs, its meter lets events through. Every command
    // a user gives then, with the mouse or the keys, is refused: the
    // comparison ends as it does undisturbed, and the windows show what
    // they would have shown. The meter's Cancel still works.
    void commandsWaitForARunningOperation() {
        // Enough entries for the comparison to update its meter.
        for (int i = 0; i < 1200; ++i)
            writeFile(m_tree + u"/sub/many%1.txt"_s.arg(i), "x");
        Frame frame(iniPath());
        showActive(frame);
        frame->options().setValue(Key::Compare, 0);
        makePair(frame);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(!newer->compared());
        QVERIFY(newer->selectFolder(u"/sub/"_s));

        bool disturbed = false;
        std::function<void()> disturb = [&] {
            // The options dialog lets events through before the comparison.
            if (!frame->busy()) {
                QTimer::singleShot(0, disturb);
                return;
            }
            disturbed = true;
            clickNode(*newer, u"/gone/"_s);
            clickNode(*older, u"/"_s);
            QTest::keyClick(newer->tree(), Qt::Key_Down);
            QHeaderView* header = newer->grid()->horizontalHeader();
            QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                              QPoint(header->sectionViewportPosition(engine::SizeColumn) + 4,
                                     header->height() / 2));
            const QRect firstRow = newer->grid()->visualRect(newer->gridModel().index(0, 0));
            QTest::mouseDClick(newer->grid()->viewport(), Qt::LeftButton, {}, firstRow.center());
            QTest::keyClick(newer->grid(), Qt::Key_Return);
            QWheelEvent wheel(QPointF(firstRow.center()),
                              newer->grid()->mapToGlobal(firstRow.center()), {}, QPoint(0, -120),
                              Qt::NoButton, {}, Qt::NoScrollPhase, false);
            QApplication::sendEvent(newer->grid()->viewport(), &wheel);
            QTest::mouseClick(newer->showSelector(), Qt::LeftButton);
            QTest::keyClick(newer->showSelector(), Qt::Key_Down);
            QMenuBar* bar = frame->menuBar();
            for (QAction* menu : bar->actions())
                QTest::mouseClick(bar, Qt::LeftButton, {}, bar->actionGeometry(menu).center());
            QTest::keyClick(frame.window.get(), Qt::Key_V, Qt::AltModifier);
            for (const QKeySequence& key :
                 {QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence(Qt::Key_F5),
                  QKeySequence(Qt::CTRL | Qt::Key_S), QKeySequence(Qt::CTRL | Qt::Key_W),
                  QKeySequence(Qt::CTRL | Qt::Key_N), QKeySequence(Qt::CTRL | Qt::Key_O),
                  QKeySequence(Qt::CTRL | Qt::Key_P), QKeySequence(Qt::CTRL | Qt::Key_Q),
                  QKeySequence(Qt::Key_F1)})
                QTest::keySequence(frame.window.get(), key);
            for (const char* button : {"New", "Open", "Save As", "Repeat", "Compare", "Print"})
                QTest::mouseClick(
                    frame->toolbar()->widgetForAction(frame->toolbarButton(QLatin1String(button))),
                    Qt::LeftButton);
            auto* split = newer->findChild<views::SplitterBar*>(u"picSplit"_s);
            QTest::mousePress(split, Qt::LeftButton, {}, QPoint(2, 10));
            QTest::mouseRelease(split, Qt::LeftButton, {}, QPoint(-100, 10));
            QVERIFY(!newer->parentWidget()->close());
            QVERIFY(!frame->close());
            QVERIFY(!QApplication::activePopupWidget());
        };
        const auto compareFromTheToolbar = [&] {
            frame.whileShown = [&](QDialog& dialog) {
                if (auto* both = dialog.findChild<QPushButton*>(u"cmdCompare1"_s))
                    both->click();
                return int(QDialog::Accepted);
            };
            QTest::mouseClick(frame->toolbar()->widgetForAction(frame->toolbarButton(u"Compare"_s)),
                              Qt::LeftButton);
            frame.whileShown = nullptr;
        };
        QTimer::singleShot(0, disturb);
        compareFromTheToolbar();
        QVERIFY(disturbed);
        QVERIFY(newer->compared() && older->compared());
        QCOMPARE(frame.dialogs, QStringList{u"kestrel::settings::ConfigDialog"_s});
        QVERIFY(frame.proposedSave.isEmpty() && frame.opened.isEmpty());
        QCOMPARE(frame->snapshotWindows(), (QList<SnapshotWindow*>{older, newer}));
        QVERIFY(frame->isVisible());
        const QList<qint64> disturbedResult = comparison(*newer) + comparison(*older);
        const QStringList disturbedView = shown(*newer) + shown(*older);

        // The same comparison undisturbed.
        for (SnapshotWindow* w : {older, newer})
            views::resetComparison(*w);
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        compareFromTheToolbar();
        QVERIFY(newer->compared() && older->compared());
        QVERIFY(comparison(*newer) + comparison(*older) == disturbedResult);
        QCOMPARE(shown(*newer) + shown(*older), disturbedView);

        // A scan cancelled from its meter: the frame's input is refused, the
        // meter's is not.
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QVERIFY(newer->parentWidget()->close());
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        bool cancelled = false;
        std::function<void()> cancel = [&] {
            if (!frame->busy()) {
                QTimer::singleShot(0, cancel);
                return;
            }
            QTest::mouseClick(frame->toolbar()->widgetForAction(frame->toolbarButton(u"Repeat"_s)),
                              Qt::LeftButton);
            frame->meterWindow().meterShown(); // as after a second
            QTest::mouseClick(frame->meterWindow().cancelButton(), Qt::LeftButton);
            cancelled = true;
        };
        QTimer::singleShot(0, cancel);
        QVERIFY(!frame->NewSnapshot(m_tree, true, true, false, 2));
        QVERIFY(cancelled);
        QCOMPARE(frame->snapshotWindows().size(), 1);
    }

    // A comparison root set in one window is the pair's: the other window
    // takes the matching folder and the two compare root with root. What
    // lies outside the root keeps no colour of an earlier comparison, and
    // the modes that filter show only the way down to the root. A folder
    // the other snapshot lacks leaves the pair uncompared.
    void comparisonRootBelongsToThePair() {
        Frame frame(iniPath());
        makePair(frame);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        newer->action(u"mnuCompareRoot"_s)->trigger();
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(w->rootKey(), u"sub/"_s);
            QVERIFY(w->compared());
            QCOMPARE(w->selectedKey(), u"/sub/"_s);
            QCOMPARE(w->statusBar()->panelText(2), u"1 file changed"_s);
            QCOMPARE(colourOf(cell(*w, u"b.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole)),
                     QColor(0, 255, 255));
        }
        QVERIFY(frame.messages.isEmpty());

        QVERIFY(newer->selectFolder(u"/"_s));
        QCOMPARE(older->selectedKey(), u"/"_s);
        for (const QString& name : words(u"a.txt new.txt newdir sub"_s))
            for (const int role : {Qt::ForegroundRole, Qt::BackgroundRole})
                QVERIFY2(!cell(*newer, name, engine::SizeColumn, role).isValid(), qPrintable(name));
        QVERIFY(!newer->treeModel()
                     .indexOfKey(u"/newdir/"_s, newer->nameMatching())
                     .data(Qt::ForegroundRole)
                     .isValid());
        QCOMPARE(newer->statusBar()->panelText(2), u"No changes in selected folder"_s);
        QCOMPARE(older->statusBar()->panelText(2), u"No changes in selected folder"_s);
        for (int position = 1; position < 5; ++position) {
            newer->setShowPosition(position);
            QVERIFY(newer->selectFolder(u"/"_s));
            QCOMPARE(topFolders(*newer), QStringList{u"sub"_s});
            QCOMPARE(gridRows(*newer), QStringList{u"sub"_s});
        }
        newer->setShowPosition(0);

        frame.messages.clear();
        QVERIFY(newer->selectFolder(u"/newdir/"_s));
        newer->mnuCompareRoot_Click();
        QCOMPARE(frame.messages,
                 QStringList{u"Comparison Root: The other Snapshot has no folder "_s + m_tree +
                             u"/newdir/: the Snapshots are not compared."_s});
        QVERIFY(!newer->compared() && !older->compared());
        QCOMPARE(newer->rootKey(), u"newdir/"_s);
        QCOMPARE(older->rootKey(), u"sub/"_s);

        // Back to the top of both, and from there the whole trees compare.
        QVERIFY(newer->selectFolder(u"/"_s));
        newer->mnuCompareRoot_Click();
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(w->rootKey(), QString());
            QVERIFY(w->compared());
        }
        QCOMPARE(newer->statusBar()->panelText(2),
                 u"1 extra file, 1 extra folder, 1 file changed, 1 folder with changes"_s);
    }

    void scrollingTogether() {
        const QString big = m_dir->filePath(u"Big"_s);
        QVERIFY(QDir().mkpath(big + u"/list"_s));
        for (int i = 0; i < 300; ++i)
            writeFile(big + u"/list/file%1.txt"_s.arg(i, 3, 10, QLatin1Char('0')), "x");
        Frame frame(iniPath());
        frame->resize(1000, 800);
        frame->show();
        QVERIFY(frame->NewSnapshot(big, true, true, false, 1));
        writeFile(big + u"/list/file0000.txt"_s, "only in the second");
        shell::mnuFileRepeat_Click(*frame.window, *frame->activeSnapshotWindow());
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer->selectFolder(u"/list/"_s));
        QCOMPARE(older->gridModel().rowCount(), 300);
        newer->grid()->verticalScrollBar()->setValue(150);
        QCOMPARE(newer->topRow(), 150);
        const QString top = gridRows(*newer).at(150);
        QCOMPARE(top, u"file149.txt"_s);
        QCOMPARE(older->topRow(), 149);
        QCOMPARE(gridRows(*older).at(149), top);

        // The other window's grid leads too when the user scrolls it, with
        // the wheel though its window is not the active one; moved by the
        // program it does not.
        older->grid()->verticalScrollBar()->setValue(10);
        QCOMPARE(newer->topRow(), 150);
        QCOMPARE(frame->activeSnapshotWindow(), newer);
        QWidget* viewport = older->grid()->viewport();
        const QPointF inside = viewport->rect().center();
        QWheelEvent wheel(inside, viewport->mapToGlobal(inside), {}, QPoint(0, -120), Qt::NoButton,
                          {}, Qt::NoScrollPhase, false);
        QApplication::sendEvent(viewport, &wheel);
        QVERIFY(older->topRow() > 10);
        QCOMPARE(gridRows(*newer).at(newer->topRow()), gridRows(*older).at(older->topRow()));
        QCOMPARE(frame->activeSnapshotWindow(), newer);
    }

    // After Repeat a list the user sorted keeps its sort while the windows
    // do not scroll together; when they do, it is in name order, ascending
    // whatever order the user's sort had.
    void repeatKeepsTheSortOrNamesAscending() {
        for (const bool synch : {true, false}) {
            Frame frame(iniPath());
            showActive(frame);
            frame->options().setValue(Key::Synch, synch ? 1 : 0);
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            SnapshotWindow* w = frame->activeSnapshotWindow();
            QHeaderView* header = w->grid()->horizontalHeader();
            const QPoint size(header->sectionViewportPosition(engine::SizeColumn) + 4,
                              header->height() / 2);
            for (int click = 0; click < 2; ++click)
                QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, size);
            QCOMPARE(w->sortColumn(), SnapshotWindow::SortBySize);
            QVERIFY(w->sortDescending());
            const QStringList bySize = gridRows(*w);
            shell::mnuFileRepeat_Click(*frame.window, *w);
            QVERIFY(w->compared());
            QCOMPARE(w->sortColumn(),
                     synch ? SnapshotWindow::SortByName : SnapshotWindow::SortBySize);
            QCOMPARE(w->sortDescending(), !synch);
            QCOMPARE(gridRows(*w), synch ? words(u"a.txt gone keep.txt sub"_s) : bySize);
        }
    }

    void statusBarAndSubFolderFiles() {
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        views::SnapshotStatusBar* bar = w->statusBar();
        QVERIFY(w->selectFolder(u"/gone/"_s));
        QCOMPARE(bar->panelText(3), u"3 bytes in 1 file "_s);
        QVERIFY(!bar->foldersPanelVisible());
        QVERIFY(w->selectFolder(u"/sub/"_s));
        QCOMPARE(bar->panelText(3), u"1 KB in 2 files "_s);
        w->mnuViewBytes_Click();
        QCOMPARE(bar->panelText(3), u"1,011 bytes in 2 files "_s);
        QVERIFY(w->selectFolder(u"/"_s));
        QCOMPARE(bar->panelText(3), u"9 bytes in 2 files "_s);
        QCOMPARE(bar->panelText(4), u"2 folders "_s);
        QVERIFY(bar->foldersPanelVisible());

        w->mnuViewSubs_Click();
        QVERIFY(w->showsSubFolders());
        // Sorted by name, whatever folder the entries are in.
        QCOMPARE(gridRows(*w),
                 words(u"a.txt sub/b.txt sub/c.bin gone keep.txt gone/old.txt sub"_s));
        QVERIFY(!w->grid()->isColumnHidden(engine::InFolderColumn));
        w->mnuViewSubs_Click();
        QVERIFY(w->grid()->isColumnHidden(engine::InFolderColumn));
        // "Always" lists them for folders smaller than the limit.
        frame->options().setValue(Key::Always, 1);
        QVERIFY(w->selectFolder(u"/sub/"_s));
        QVERIFY(w->showsSubFolders());
    }

    // A folder that holds only files lists them, alone and compared: the
    // tree shows its top alone and unexpanded, the grid every file, sorted
    // by a click on a heading, coloured after the comparison and exported.
    void aFolderOfFilesListsItsFiles() {
        const QString flat = m_dir->filePath(u"Flat"_s);
        QVERIFY(QDir().mkpath(flat));
        for (const char* name : {"one.txt", "two.txt", "three.txt"}) {
            writeFile(flat + u'/' + QLatin1String(name), name);
            setTime(flat + u'/' + QLatin1String(name), Fixed);
        }
        Frame frame(iniPath());
        frame->show();
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
        QVERIFY(frame->NewSnapshot(flat, true, true, false, 1));
        SnapshotWindow* older = frame->activeSnapshotWindow();
        const views::FolderTreeModel& tree = older->treeModel();
        QCOMPARE(tree.rowCount(tree.topIndex()), 0);
        QVERIFY(!older->tree()->isExpanded(tree.topIndex()));
        QCOMPARE(older->statusBar()->panelText(3), u"23 bytes in 3 files "_s);
        // Listed in name order, ready to scroll together with a pair.
        QCOMPARE(gridRows(*older), words(u"one.txt three.txt two.txt"_s));
        QHeaderView* header = older->grid()->horizontalHeader();
        QTest::mouseClick(
            header->viewport(), Qt::LeftButton, {},
            QPoint(header->sectionViewportPosition(engine::NameColumn) + 5, header->height() / 2));
        QCOMPARE(gridRows(*older), words(u"two.txt three.txt one.txt"_s));

        writeFile(flat + u"/two.txt"_s, "two, longer");
        writeFile(flat + u"/four.txt"_s, "four");
        QVERIFY(QFile::remove(flat + u"/one.txt"_s));
        QTest::keyClick(frame.window.get(), Qt::Key_R, Qt::ControlModifier);
        QCOMPARE(frame->snapshotWindows().size(), 2);
        SnapshotWindow* newer = second(frame);
        QVERIFY(newer->compared());
        QCOMPARE(newer->treeModel().rowCount(newer->treeModel().topIndex()), 0);
        QCOMPARE(newer->statusBar()->panelText(2), u"1 extra file, 1 file changed"_s);
        QCOMPARE(older->statusBar()->panelText(2), u"1 extra file, 1 file changed"_s);
        const QColor red(255, 0, 0), cyan(0, 255, 255);
        QCOMPARE(colourOf(cell(*newer, u"four.txt"_s, engine::NameColumn, Qt::ForegroundRole)),
                 red);
        QCOMPARE(colourOf(cell(*newer, u"two.txt"_s, engine::SizeColumn, Qt::BackgroundRole)),
                 cyan);
        QCOMPARE(colourOf(cell(*older, u"one.txt"_s, engine::NameColumn, Qt::ForegroundRole)), red);
        // What export and the report read is what the grid shows.
        const output::ShownList shown = views::shownListOf(*newer);
        QCOMPARE(shown.rowCount(), 3);
        QCOMPARE(shown.changesPanel, u"1 extra file, 1 file changed"_s);
        for (SnapshotWindow* w : frame->snapshotWindows())
            w->setChanged(false);
    }

    // Line breaks and carriage returns in names show as a mark in the tree,
    // the grid and the status bar; the names themselves stay whole.
    void lineBreaksInNamesShowAsAMark() {
        const QString odd = m_dir->filePath(u"Odd"_s);
        QVERIFY(QDir().mkpath(odd + u"/two\nlines"_s));
        writeFile(odd + u"/two\nlines/car\rriage.txt"_s, "x");
        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(odd, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        const QString mark = QChar(engine::LineBreakMark);
        const QModelIndex node = w->treeModel().indexOfKey(u"/two\nlines/"_s, w->nameMatching());
        QCOMPARE(node.data().toString(), u"two"_s + mark + u"lines"_s);
        QTest::mouseClick(w->tree()->viewport(), Qt::LeftButton, {},
                          w->tree()->visualRect(node).center());
        QCOMPARE(w->selectedKey(), u"/two\nlines/"_s);
        QCOMPARE(gridRows(*w), QStringList{u"car\rriage.txt"_s});
        QCOMPARE(w->gridModel().index(0, engine::NameColumn).data().toString(),
                 u"car"_s + mark + u"riage.txt"_s);
        QVERIFY(w->statusBar()->panelText(1).endsWith(u"/two"_s + mark + u"lines/"_s));
    }

    // 30,000 entries beneath a folder can be listed with their sub-folders'
    // files; 30,001 cannot.
    void theEntryLimit() {
        for (const int32_t beneath : {30000, 30001}) {
            // A folder holding a folder holding the rest.
            engine::Snapshot s;
            s.header.rootFolder = u"/made/"_s;
            s.createEntry(16, 45000, 1, "outer", 0, 0, {});
            s.createEntry(16, 45000, 2, "inner", 1, 0, {});
            const int32_t last = beneath + 1;
            for (int32_t i = 3; i <= last; ++i)
                s.createEntry(128, 45000, i == last ? 3 : i + 1, "f" + std::to_string(i), 2, 1, {});
            s.mutableEntry(0).count = last;
            s.mutableEntry(1).count = beneath;
            s.mutableEntry(2).count = beneath - 1;
            s.header.fileName = m_dir->filePath(u"Made.#01"_s);
            engine::ProgressMeter meter;
            QVERIFY(engine::SaveSnapshot(s, meter).ok);

            Frame frame(iniPath());
            QVERIFY(frame->OpenSnapshot(s.header.fileName));
            SnapshotWindow* w = frame->activeSnapshotWindow();
            w->action(u"mnuViewSubs"_s)->setChecked(true);
            QVERIFY(w->selectFolder(u"/outer/"_s));
            const bool fits = beneath == 30000;
            QCOMPARE(w->showsSubFolders(), fits);
            QCOMPARE(w->action(u"mnuViewSubs"_s)->isChecked(), fits);
            QCOMPARE(w->gridModel().rowCount(), fits ? 30000 : 1);
            QCOMPARE(frame.messages, fits ? QStringList()
                                          : QStringList{u"Entry Limit: Too many entries to show "
                                                        "files in sub-folders (maximum is 30,000), "
                                                        "option will be ignored"_s});
        }
    }

    void branchDoubleClicksAndKeys() {
        Frame frame(iniPath());
        frame->show();
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();

        // A folder row opens the folder in the tree, by mouse or by Enter.
        w->grdFiles_DblClick(rowNamed(*w, u"sub"_s));
        QCOMPARE(w->selectedKey(), u"/sub/"_s);
        w->grid()->setFocus();
        w->grid()->setCurrentIndex(w->gridModel().index(rowNamed(*w, u"b.txt"_s), 0));
        QTest::keyClick(w->grid(), Qt::Key_Return);
        QCOMPARE(frame.opened, QList<QUrl>{QUrl::fromLocalFile(m_tree + u"/sub/b.txt"_s)});
        QCOMPARE(w->GetParameter(w->gridModel().entryAt(rowNamed(*w, u"c.bin"_s))),
                 m_tree + u"/sub/c.bin"_s);

        // Branch: the selected folder becomes the root and a snapshot of it
        // the second window, which compares against it.
        shell::mnuFileBranch_Click(*frame.window, *w);
        QCOMPARE(w->rootKey(), u"sub/"_s);
        QCOMPARE(frame->snapshotWindows().size(), 2);
        SnapshotWindow* branch = second(frame);
        QCOMPARE(branch->snapshot().header.rootFolder, m_tree + u"/sub/"_s);
        QCOMPARE(branch->number(), int16_t(2));
        QVERIFY(branch->compared());
        QCOMPARE(branch->statusBar()->panelText(2), u"No changes in selected folder"_s);
        QVERIFY(!branch->action(u"mnuFileBranch"_s)->isEnabled());

        // Keys: Ctrl+W closes the active window, Ctrl+R repeats.
        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QTest::keyClick(frame.window.get(), Qt::Key_W, Qt::ControlModifier);
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QTRY_COMPARE(frame->activeSnapshotWindow(), w);
        QTest::keyClick(frame.window.get(), Qt::Key_R, Qt::ControlModifier);
        QCOMPARE(frame->snapshotWindows().size(), 2);
    }

    // A name that is not UTF-8, the root folder's own included, reaches the
    // desktop, the program it names and the external compare program in its
    // own bytes, never as the look-alike beside it; Repeat scans that root
    // again.
    void launchedNamesKeepTheirBytes() {
        const QByteArray root = QFile::encodeName(m_dir->path()) + "/Odd\xE9/";
        const QByteArray folder = root + "in/";
        const QByteArray args = QFile::encodeName(m_dir->filePath(u"args"_s));
        // Writes its own path and its arguments, a line each.
        const QByteArray recorder = "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" > '" + args +
                                    ".part' && mv '" + args + ".part' '" + args + "'\n";
        const auto put = [](const QByteArray& path, const QByteArray& contents, mode_t mode) {
            const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, mode);
            QVERIFY(fd >= 0);
            QCOMPARE(::write(fd, contents.constData(), size_t(contents.size())), contents.size());
            ::close(fd);
        };
        QCOMPARE(::mkdir(root.constData(), 0755), 0);
        // Qt cannot name these files to remove them with the temporary folder.
        const auto removeOdd = qScopeGuard([&] {
            QProcess::execute(u"rm"_s, {u"-rf"_s, m_dir->path()});
        });
        QCOMPARE(::mkdir(folder.constData(), 0755), 0);
        put(folder + "caf\xE9.txt", "Latin-1", 0644);
        put(folder + "caf\xC3\xA9.txt", "UTF-8", 0644);
        put(folder + "run\xE9", recorder, 0755);
        const QString record = m_dir->filePath(u"record"_s);
        put(QFile::encodeName(record), recorder, 0755);
        const auto recorded = [&] { return readFile(QString::fromUtf8(args)); };

        Frame frame(iniPath());
        frame->launcher().setDesktop({[&frame](const QUrl& url) {
                                          frame.opened << url;
                                          return true;
                                      },
                                      shell::Launcher::systemDesktop().startProgram});
        frame->show();
        QVERIFY(QTest::qWaitForWindowActive(frame.window.get()));
        const QString storedRoot = engine::storedPath(engine::nativeText(root.toStdString()));
        QVERIFY(frame->NewSnapshot(storedRoot, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        QCOMPARE(w->snapshot().header.rootFolder, m_dir->path() + u"/Odd\\xE9/"_s);
        const auto pressEnter = [](SnapshotWindow* w, const QString& name) {
            w->grid()->setFocus();
            w->grid()->setCurrentIndex(w->gridModel().index(rowNamed(*w, name), 0));
            QTest::keyClick(w->grid(), Qt::Key_Return);
        };
        // The file's bytes, as the desktop's launcher reads them from the URL.
        const auto openedLast = [&frame] {
            return QByteArray::fromPercentEncoding(frame.opened.last().toEncoded().mid(7));
        };
        QVERIFY(w->selectFolder(u"/in/"_s));
        pressEnter(w, u"caf\\xE9.txt"_s);
        QCOMPARE(frame.opened.size(), 1);
        QCOMPARE(openedLast(), folder + "caf\xE9.txt");
        pressEnter(w, u"café.txt"_s);
        QCOMPARE(openedLast(), folder + "caf\xC3\xA9.txt");
        // An executable file is started as a program.
        pressEnter(w, u"run\\xE9"_s);
        QTRY_COMPARE(recorded(), folder + "run\xE9\n");
        QFile::remove(QString::fromUtf8(args));

        // The external program, on the file and its counterpart in a
        // repeated snapshot.
        frame->options().setValue(Key::Shell, 1);
        control<QLineEdit>(frame->configDialog(), "txtProgram")->setText(record);
        shell::mnuFileRepeat_Click(*frame.window, *w);
        SnapshotWindow* repeated = second(frame);
        QCOMPARE(repeated->snapshot().header.rootFolder, storedRoot);
        QVERIFY(repeated->selectFolder(u"/in/"_s));
        QCOMPARE(repeated->statusBar()->panelText(2), u"No changes in selected folder"_s);
        pressEnter(repeated, u"caf\\xE9.txt"_s);
        QTRY_COMPARE(recorded(), QFile::encodeName(record) + '\n' + folder + "caf\xE9.txt\n" +
                                     folder + "caf\xE9.txt\n");
    }

    // Saving the options acts on both windows at once: the tree and the grid
    // in the new highlight colour, "Always show files in sub-folders"
    // listing them, empty folders left out of the list; a double-click
    // starts the external program on a file and its counterpart, and opens
    // a folder in the file manager.
    void savedOptionsActOnTheWindows() {
        Frame frame(iniPath());
        makePair(frame);
        SnapshotWindow* older = first(frame);
        SnapshotWindow* newer = second(frame);
        const QString program = m_dir->filePath(u"cmp"_s);
        writeFile(program, "#!/bin/sh\n");
        frame.whileShown = [&](QDialog& dialog) {
            dialog.findChild<QComboBox*>(u"cboChanged"_s)->setCurrentIndex(6);
            for (const char* box : {"chkAlways", "optShell1", "chkExplore", "chkEmpty"})
                dialog.findChild<QAbstractButton*>(QLatin1String(box))->click();
            dialog.findChild<QLineEdit*>(u"txtProgram"_s)->setText(program);
            dialog.findChild<QPushButton*>(u"cmdSave"_s)->click();
            return int(QDialog::Accepted);
        };
        frame->mnuFileConfig_Click();
        frame.whileShown = nullptr;
        const QColor yellow(255, 255, 0);
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(colourOf(w->treeModel()
                                  .indexOfKey(u"/sub/"_s, w->nameMatching())
                                  .data(Qt::BackgroundRole)),
                     yellow);
            QCOMPARE(colourOf(cell(*w, u"a.txt"_s, engine::SizeColumn, Qt::BackgroundRole)),
                     yellow);
            QVERIFY(w->showsSubFolders());
            QVERIFY(gridRows(*w).contains(u"sub/b.txt"_s));
        }
        QVERIFY(!gridRows(*newer).contains(u"gone"_s));
        QVERIFY(gridRows(*older).contains(u"gone"_s)); // it is not empty there

        newer->grdFiles_DblClick(rowNamed(*newer, u"a.txt"_s));
        const QStringList both{program, m_tree + u"/a.txt"_s, m_tree + u"/a.txt"_s};
        QCOMPARE(frame.started, QList<QStringList>{both});
        newer->grdFiles_DblClick(rowNamed(*newer, u"new.txt"_s)); // nothing to compare it with
        QCOMPARE(frame.started.size(), 1);
        QVERIFY(frame.titles.isEmpty());
        newer->grdFiles_DblClick(rowNamed(*newer, u"sub"_s));
        QCOMPARE(frame.opened, QList<QUrl>{QUrl::fromLocalFile(m_tree + u"/sub"_s)});
        QCOMPARE(newer->selectedKey(), u"/"_s);
    }

    // Under a dark palette every highlighted text stays readable: the "No
    // Match" colour is moved away from a background it would vanish on,
    // and text on the "Changed" colour takes black or white, whichever
    // stands out. Measured on the pixels of the grid as drawn.
    void darkPaletteKeepsHighlightsReadable() {
        const QColor white(Qt::white), red(255, 0, 0), blue(0, 0, 255);
        QCOMPARE(views::readableOn(red, white, 3.0), red); // light defaults stay as chosen
        const QColor darkBase = views::darkPalette().color(QPalette::Base);
        QVERIFY(views::contrastRatio(views::readableOn(blue, darkBase, 3.0), darkBase) >= 3.0);

        const QPalette before = QApplication::palette();
        QApplication::setPalette(views::darkPalette());
        Frame frame(iniPath());
        frame->resize(1200, 800);
        frame->show();
        frame->options().setValue(Key::Deleted, 1); // blue: unreadable on dark as it stands
        makePair(frame);
        SnapshotWindow* w = second(frame);
        QVERIFY(QTest::qWaitForWindowExposed(frame.window.get()));
        w->grid()->clearSelection(); // the cells as they are, not as selected
        const double noMatch =
            paintedCell(*w, rowNamed(*w, u"new.txt"_s), engine::NameColumn).contrast();
        const double onChanged =
            paintedCell(*w, rowNamed(*w, u"a.txt"_s), engine::SizeColumn).contrast();
        const double plain =
            paintedCell(*w, rowNamed(*w, u"keep.txt"_s), engine::NameColumn).contrast();
        QApplication::setPalette(before);
        QVERIFY2(noMatch >= 3.0, "No Match text");
        QVERIFY2(onChanged >= 4.5, "text on Changed");
        QVERIFY2(plain >= 4.5, "plain text");
    }

    // The row the keyboard stands on is selected, and still shows its
    // colours: the first row's Changed cell right after the comparison, in
    // the active window and in the other, and a clicked row's No Match
    // text. Read from the pixels of the grid as drawn.
    void selectedRowsKeepTheirColours() {
        Frame frame(iniPath());
        showActive(frame);
        makePair(frame);
        const QColor cyan(0, 255, 255), red(255, 0, 0);
        const auto distance = [](const QColor& a, const QColor& b) {
            return std::hypot(a.red() - b.red(), a.green() - b.green(), a.blue() - b.blue());
        };
        for (SnapshotWindow* w : {second(frame), first(frame)}) {
            QCOMPARE(gridRows(*w).first(), u"a.txt"_s);
            QVERIFY(w->grid()->selectionModel()->isRowSelected(0));
            const QColor selection = w->grid()->palette().color(QPalette::Highlight);
            const QColor selected = paintedCell(*w, 0, engine::SizeColumn).background;
            QVERIFY2(distance(selected, cyan) < distance(selected, selection),
                     qPrintable(selected.name()));
            w->grid()->clearSelection();
            QVERIFY2(paintedCell(*w, 0, engine::SizeColumn).background != selected,
                     "the selection does not show");
        }

        SnapshotWindow* w = second(frame);
        const int newRow = rowNamed(*w, u"new.txt"_s);
        QTest::mouseClick(w->grid()->viewport(), Qt::LeftButton, {},
                          w->grid()->visualRect(w->gridModel().index(newRow, 0)).center());
        QVERIFY(w->grid()->selectionModel()->isRowSelected(newRow));
        const QColor text = paintedCell(*w, newRow, engine::NameColumn).text;
        for (const auto role : {QPalette::Text, QPalette::HighlightedText})
            QVERIFY2(distance(text, red) < distance(text, w->grid()->palette().color(role)),
                     qPrintable(text.name()));
    }

    void splitterKeepsItsDistanceFromTheEdges() {
        QCOMPARE(views::splitPosition(10, 1000, 150), 150);
        QCOMPARE(views::splitPosition(990, 1000, 150), 850);
        QCOMPARE(views::splitPosition(400, 1000, 150), 400);
        QCOMPARE(views::splitPosition(100, 200, 150), 150); // too narrow: the left edge wins

        Frame frame(iniPath());
        frame->show();
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        w->parentWidget()->resize(900, 500);
        QTRY_VERIFY(w->width() > 600);
        auto* bar = w->findChild<views::SplitterBar*>(u"picSplit"_s);
        QTest::mousePress(bar, Qt::LeftButton, {}, QPoint(2, 10));
        QVERIFY(bar->dragging());
        QTest::mouseRelease(bar, Qt::LeftButton, {}, bar->mapFrom(w, QPoint(5, 10)));
        const int margin = engine::pixelsFromTwips(SnapshotWindow::SplitMargin, w->logicalDpiX());
        QCOMPARE(bar->x(), margin);
        QCOMPARE(w->tree()->width(), margin);
        QCOMPARE(w->grid()->x(), bar->geometry().right() + 1);
    }

    void damagedSnapshotOpensNoWindow() {
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        const QString good = m_dir->filePath(u"Good.#01"_s);
        frame.saveAnswer = good;
        shell::mnuFileSaveAs_Click(*frame.window, *frame->activeSnapshotWindow());
        const QList<QByteArray> lines = readFile(good).split('\n');
        // Lines 2.. are the entries: attributes, date, next sibling, count,
        // name, parent, size, version. The first entry, which every walk of
        // the snapshot meets, becomes its own parent (the file list's tests
        // see the other damaged links).
        QList<QByteArray> items = lines[2].split(',');
        items[5] = "1";
        QList<QByteArray> copy = lines;
        copy[2] = items.join(',');
        const QString damaged = m_dir->filePath(u"Damaged.#01"_s);
        writeFile(damaged, copy.join('\n'));
        frame.messages.clear();
        QVERIFY(!frame->OpenSnapshot(damaged));
        QCOMPARE(frame->snapshotWindows().size(), 1);
        QCOMPARE(frame.messages, QStringList{u"Invalid Snapshot: Subscript out of range"_s});
        // The program goes on as before.
        QVERIFY(frame->OpenSnapshot(good));
    }

    // The models keep Qt's rules through rebuilds, comparisons, show modes
    // and sorting on a snapshot of a few thousand entries.
    void modelsKeepTheRules() {
        const QString many = m_dir->filePath(u"Many"_s);
        for (int d = 0; d < 20; ++d) {
            const QString folder = many + u"/d%1/e%2"_s.arg(d).arg(d % 3);
            QVERIFY(QDir().mkpath(folder));
            for (int f = 0; f < 100; ++f)
                writeFile(folder + u"/f%1"_s.arg(f), QByteArray(f, 'x'));
        }
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(many, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        auto* tree = const_cast<views::FolderTreeModel*>(&w->treeModel());
        auto* grid = const_cast<views::FileGridModel*>(&w->gridModel());
        QAbstractItemModelTester treeTester(tree,
                                            QAbstractItemModelTester::FailureReportingMode::QtTest);
        QAbstractItemModelTester gridTester(grid,
                                            QAbstractItemModelTester::FailureReportingMode::QtTest);
        QVERIFY(w->snapshot().entryCount > 2000);
        for (int d = 0; d < 20; d += 2)
            QFile::remove(many + u"/d%1/e%2/f7"_s.arg(d).arg(d % 3));
        shell::mnuFileRepeat_Click(*frame.window, *w);
        for (int position = 0; position < 5; ++position) {
            w->setShowPosition(position);
            QVERIFY(w->selectFolder(u"/d4/e1/"_s) || position > 0);
            for (int column = 1; column <= 7; ++column)
                w->SortSequence(column);
        }
        w->setShowPosition(0);
        w->mnuViewSubs_Click();
        QVERIFY(w->selectFolder(u"/"_s));
        QCOMPARE(grid->rowCount(), w->snapshot().entryCount);
    }
};

int main(int argc, char** argv) {
    return runWindowTest<SnapshotWindowTest>(argc, argv);
}

#include "SnapshotWindowTest.moc"
