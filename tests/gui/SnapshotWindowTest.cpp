// The snapshot window driven as a user drives it, over real temporary
// trees: two windows pairing and comparing, the show modes, colours (on
// selected rows too), sorting, the windows following each other's clicks,
// keys and scrolling, the find bar, the comparison root and branch,
// double-clicks and keys, commands refused while an operation runs, and a
// damaged file.

#include "TestFrame.h"

#include "engine/model/FileSystemNames.h"
#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"
#include "settings/Settings.h"
#include "shell/MeterWindow.h"
#include "views/FileGridModel.h"
#include "views/FindBar.h"
#include "views/FolderTreeModel.h"
#include "views/Highlight.h"
#include "views/ShownListOf.h"
#include "views/SnapshotPair.h"
#include "views/SnapshotStatusBar.h"
#include "views/SplitterBar.h"

#include <QAbstractItemModelTester>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace kestrel;
using namespace Qt::StringLiterals;
using settings::Key;
using views::SnapshotWindow;

namespace {

const QDateTime Fixed(QDate(2024, 1, 1), QTime(12, 0));
const QColor Red(255, 0, 0), Cyan(0, 255, 255);
const QString AllChanges = u"1 extra file, 1 extra folder, 1 file changed, 1 folder with changes"_s;

// A grid cell as drawn, inside its edges: the commonest colour is its
// background, the one that stands out most from that its text.
struct PaintedCell {
    QColor background, text;
    double contrast() const { return views::contrastRatio(text, background); }
};

} // namespace

class SnapshotWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_tree;

    QString path(const QString& name) const { return m_dir->filePath(name); }
    QString iniPath() const { return path(u"Kestrel.ini"_s); }

    // The names of the tree's nodes just under the top.
    static QStringList topFolders(const SnapshotWindow& w) {
        const views::FolderTreeModel& tree = w.treeModel();
        QStringList names;
        for (int r = 0; r < tree.rowCount(tree.topIndex()); ++r)
            names << tree.index(r, 0, tree.topIndex()).data().toString();
        return names;
    }
    // The grid's names (In Folder and Name), in the order shown.
    static QStringList gridRows(const SnapshotWindow& w) {
        const engine::FileList& rows = w.gridModel().rows();
        QStringList names;
        for (int r = 0; r < rows.rowCount(); ++r)
            names << rows.inFolder(r) + rows.cellText(r, engine::NameColumn);
        return names;
    }
    static int rowNamed(const SnapshotWindow& w, const QString& name) {
        return int(gridRows(w).indexOf(name));
    }
    static QModelIndex gridIndex(const SnapshotWindow& w, const QString& name, int column) {
        return w.gridModel().index(rowNamed(w, name), column);
    }
    static QVariant cell(const SnapshotWindow& w, const QString& name, int column, int role) {
        return gridIndex(w, name, column).data(role);
    }
    static QString cellText(const SnapshotWindow& w, const QString& name, int column) {
        return cell(w, name, column, Qt::DisplayRole).toString();
    }
    static QColor colourOf(const QVariant& brush) { return brush.value<QBrush>().color(); }
    static QColor cellColour(const SnapshotWindow& w, const QString& name, int column, int role) {
        return colourOf(cell(w, name, column, role));
    }
    static QModelIndex node(const SnapshotWindow& w, const QString& key) {
        return w.treeModel().indexOfKey(key, w.nameMatching());
    }
    // The status bar's panels: 1 the folder, 2 the change summary.
    static QString panel(const SnapshotWindow* w, int n) { return w->statusBar()->panelText(n); }
    // Clicks a folder in a window's tree with the mouse, as a user does.
    static void clickNode(const SnapshotWindow& w, const QString& key) {
        QVERIFY2(node(w, key).isValid(), qPrintable(key));
        clickIndex(w.tree(), node(w, key));
    }
    // Enter on a row of the grid.
    static void pressEnter(const SnapshotWindow& w, const QString& name) {
        w.grid()->setFocus();
        w.grid()->setCurrentIndex(gridIndex(w, name, 0));
        QTest::keyClick(w.grid(), Qt::Key_Return);
    }
    // What a window shows: the folder, the show selector, the sort, the
    // root, the rows and the status bar.
    static QStringList shown(const SnapshotWindow& w) {
        QStringList state{w.selectedKey(),
                          QString::number(w.showSelector()->currentIndex()),
                          QString::number(w.sortColumn()),
                          QString::number(w.sortDescending()),
                          w.rootKey(),
                          QString::number(w.showsSubFolders()),
                          QString::number(w.grid()->verticalScrollBar()->value())};
        for (int n = 1; n <= 4; ++n)
            state << panel(&w, n);
        return state + gridRows(w);
    }
    static PaintedCell paintedCell(const SnapshotWindow& w, int row, int column) {
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

    // The tree changes: a.txt grows, sub/b.txt gets another date, new.txt
    // and newdir/ appear, gone/old.txt goes.
    void changeTree() {
        writeFile(m_tree + u"/a.txt"_s, "alpha beta");
        setTime(m_tree + u"/a.txt"_s, Fixed);
        setTime(m_tree + u"/sub/b.txt"_s, Fixed.addDays(3));
        writeFiles(m_tree, {u"new.txt"_s, u"newdir/n.txt"_s}, Fixed.addDays(1));
        QVERIFY(QFile::remove(m_tree + u"/gone/old.txt"_s));
    }
    // The first snapshot of the tree, the tree changed, then Repeat makes
    // the second window, which pairs and compares. Shown, the frame is on
    // screen, active and large enough for both windows.
    void makePair(Frame& frame, bool shown = false) {
        if (shown)
            showLarge(frame);
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        changeTree();
        frame.repeat();
        QCOMPARE(frame->snapshotWindows().size(), 2);
    }
    // The frame on screen, active and large enough for both windows.
    static void showLarge(Frame& frame) {
        frame->resize(1400, 900);
        QVERIFY(frame.showActive());
    }
    // Runs action once an operation of the frame's is under way: the
    // options dialog, for one, lets events through before the comparison.
    static void whenBusy(Frame& frame, const std::function<void()>& action) {
        QTimer::singleShot(0, [&frame, action] {
            if (frame->busy())
                action();
            else
                whenBusy(frame, action);
        });
    }

private Q_SLOTS:
    void init() {
        QSettings(u"Kestrel"_s, u"Kestrel"_s).clear();
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_tree = path(u"Tree"_s);
        writeFiles(m_tree, words(u"a.txt keep.txt sub/b.txt gone/old.txt"_s), Fixed);
        writeFile(m_tree + u"/sub/c.bin"_s, QByteArray(1000, 'c'));
        setTime(m_tree + u"/sub/c.bin"_s, Fixed);
    }

    // A snapshot taken with content fingerprints is repeated with them: a
    // file only touched is no change, a renamed file shows where it went in
    // the Moved column of both windows, and the summary counts the move. A
    // double-click on the Moved cell goes to the other end of the move in
    // the paired window.
    void fingerprintsAndMovesShowInTheGrid() {
        Frame frame(iniPath(), Frame::Shown);
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1, true));
        setTime(m_tree + u"/sub/b.txt"_s, Fixed.addDays(3));
        QVERIFY(QFile::rename(m_tree + u"/keep.txt"_s, m_tree + u"/kept.txt"_s));
        QVERIFY(QFile::rename(m_tree + u"/sub/c.bin"_s, m_tree + u"/gone/c.bin"_s));
        frame.clickToolbar(u"Repeat"_s);
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        QVERIFY(newer->snapshot().fingerprints.taken() && newer->compared());
        QVERIFY2(panel(newer, 2).endsWith(u", 2 moved files"_s), qPrintable(panel(newer, 2)));
        QVERIFY(!newer->grid()->isColumnHidden(engine::MovedColumn));
        QCOMPARE(cellText(*newer, u"kept.txt"_s, engine::MovedColumn), u"from keep.txt"_s);
        QCOMPARE(cellText(*older, u"keep.txt"_s, engine::MovedColumn), u"to kept.txt"_s);
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        QVERIFY(!cell(*newer, u"b.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole).isValid());

        clickNode(*older, u"/sub/"_s);
        const QModelIndex moved = gridIndex(*older, u"c.bin"_s, engine::MovedColumn);
        clickIndex(older->grid(), moved); // the column is far to the right
        QTRY_COMPARE(frame.active(), older);
        QTest::mouseDClick(older->grid()->viewport(), Qt::LeftButton, {},
                           older->grid()->visualRect(moved).center());
        QCOMPARE(newer->selectedKey(), u"/gone/"_s);
        QCOMPARE(newer->grid()->currentIndex().row(), rowNamed(*newer, u"c.bin"_s));
        QVERIFY(newer->grid()->hasFocus());
    }

    // Repeat on the toolbar pairs the new window with the first and
    // compares them at once: summaries, the buttons a pair allows, columns
    // that fit without sideways scrolling, the colours of what changed, and
    // the show modes filtering tree and grid; the pair ends with either
    // window.
    void pairingComparesAtOnceAndShowsTheChanges() {
        Frame frame(iniPath(), Frame::Shown);
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* older = frame.active();
        changeTree();
        frame.clickToolbar(u"Repeat"_s);
        SnapshotWindow* newer = frame.second();
        QCOMPARE(frame.active(), newer);
        QVERIFY(newer->pairedWindow() == older && older->pairedWindow() == newer);
        QVERIFY(older->compared() && newer->compared());
        QCOMPARE(panel(older, 2), u"1 file changed, 2 folders with changes"_s);
        QCOMPARE(frame.enabledButtons(), (QStringList{u"Save As"_s, u"Compare"_s, u"Print"_s}));
        // The filler takes what the columns leave once the window is wide
        // enough for them; Permissions stands beside Attributes.
        QHeaderView* header = newer->grid()->horizontalHeader();
        QCOMPARE(header->visualIndex(engine::PermissionsColumn),
                 header->visualIndex(engine::AttributesColumn) + 1);
        const int columns = header->length() - header->sectionSize(engine::FillerColumn);
        newer->parentWidget()->resize(newer->parentWidget()->width() + columns,
                                      newer->parentWidget()->height());
        QTRY_COMPARE(header->length(), newer->grid()->viewport()->width());

        // An unmatched row in the "No Match" colour as its text, changed
        // values on the "Changed" colour; folders alike in the tree.
        for (int column = engine::NameColumn; column <= engine::VersionColumn; ++column)
            QCOMPARE(cellColour(*newer, u"new.txt"_s, column, Qt::ForegroundRole), Red);
        QCOMPARE(cellColour(*newer, u"a.txt"_s, engine::SizeColumn, Qt::BackgroundRole), Cyan);
        QVERIFY(!cell(*newer, u"a.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole).isValid());
        QCOMPARE(colourOf(node(*newer, u"/newdir/"_s).data(Qt::ForegroundRole)), Red);
        QCOMPARE(colourOf(node(*older, u"/gone/"_s).data(Qt::BackgroundRole)), Cyan);

        const QString changed = u"1 file changed, 1 folder with changes"_s;
        const struct {
            QString folders, rows, summary;
        } modes[] = {
            {u"gone newdir sub"_s, u"a.txt gone keep.txt new.txt newdir sub"_s, AllChanges},
            {u"newdir sub"_s, u"new.txt newdir sub"_s,
             u"1 extra file, 1 extra folder, 1 folder with changes"_s},
            {u"sub"_s, u"a.txt keep.txt sub"_s, changed},
            {u"sub"_s, u"a.txt sub"_s, changed},
            {u"newdir sub"_s, u"a.txt new.txt newdir sub"_s, AllChanges},
        };
        for (int position = 0; position < 5; ++position) {
            newer->selectFolder(u"/"_s);
            newer->setShowPosition(position);
            QCOMPARE(int(newer->showMode()), position + 1);
            QCOMPARE(topFolders(*newer), words(modes[position].folders));
            QCOMPARE(gridRows(*newer), words(modes[position].rows));
            QCOMPARE(panel(newer, 2), modes[position].summary);
        }
        // A folder selected before a change of mode is selected after it
        // while it stays visible.
        newer->setShowPosition(0);
        QVERIFY(newer->selectFolder(u"/newdir/"_s));
        newer->setShowPosition(1);
        QCOMPARE(newer->selectedKey(), u"/newdir/"_s);
        newer->setShowPosition(2);
        QCOMPARE(newer->selectedKey(), u"/"_s);

        frame.closeWithoutSaving(*newer);
        QTRY_VERIFY(!older->compared() && !older->pairedWindow());
        QCOMPARE(panel(older, 2), u"Click New, Open or Repeat to provide the second Snapshot"_s);
        QVERIFY(frame->toolbarButton(u"Repeat"_s)->isEnabled());
    }

    // Save As (Ctrl+S) proposes the number after the highest, a link at a
    // name counting as taken; a link chosen is refused with its name and
    // nothing is written where it points; when the 99th exists it is
    // proposed again, and replacing it is the save dialog's question.
    void saveAsNumbersAfterTheHighestAndWritesThroughNoLink() {
        writeFile(path(u"Tree.#02"_s), "second");
        const QString victim = path(u"victim"_s);
        const QString link = path(u"Tree.#03"_s);
        QVERIFY(QFile::link(victim, link));
        Frame frame(iniPath());
        QVERIFY(frame.showActive());
        frame->setLastFolder(m_dir->path());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* w = frame.active();
        const auto saveAs = [&](const QString& answer) {
            frame.saveAnswer = answer;
            QTest::keyClick(frame.window.get(), Qt::Key_S, Qt::ControlModifier);
        };

        saveAs(link);
        QCOMPARE(frame.proposedSave, m_dir->path() + u"/Tree.#04"_s);
        QCOMPARE(frame.messages,
                 QStringList{u"Error Writing Snapshot: "_s + link +
                             u" is a symbolic link; Kestrel does not write over links"_s});
        QVERIFY(!QFileInfo::exists(victim));
        QVERIFY(w->changed() && w->snapshot().header.fileName.isEmpty());

        const QString last = path(u"Tree.#99"_s);
        writeFile(last, "last");
        saveAs(last);
        QCOMPARE(frame.proposedSave, last);
        QVERIFY(!w->changed() && w->snapshot().header.fileName == last);
        QVERIFY(readFile(last).startsWith("Snapshot #1 of "));
    }

    // Heading clicks sort, the same one again the other way round, and
    // stop the scrolling together, which asks for name order again. With
    // the faster option on when the window was made, the key columns
    // cannot be sorted, even after the option goes off.
    void sortingByHeaderAndTheFasterRestriction() {
        Frame frame(iniPath());
        makePair(frame, true);
        SnapshotWindow* w = frame.second();
        QHeaderView* header = w->grid()->horizontalHeader();
        clickHeading(header, engine::NameColumn);
        QCOMPARE(gridRows(*w), words(u"sub newdir new.txt keep.txt gone a.txt"_s));
        QVERIFY(!w->action(u"mnuViewScroll"_s)->isChecked());
        clickHeading(header, engine::SizeColumn);
        QCOMPARE(w->sortColumn(), SnapshotWindow::SortBySize);
        QVERIFY(!w->sortDescending());
        // Folders count 0 bytes and keep their order; the files follow by size.
        QCOMPARE(gridRows(*w).mid(3), words(u"new.txt keep.txt a.txt"_s));
        QCOMPARE(w->grid()->currentIndex().row(), 0);
        w->mnuViewScroll_Click();
        QVERIFY(w->action(u"mnuViewScroll"_s)->isChecked());
        QCOMPARE(w->sortColumn(), SnapshotWindow::SortByName);
        QCOMPARE(gridRows(*w).first(), u"a.txt"_s);

        frame->options().setValue(Key::Faster, 1);
        frame.closeWithoutSaving(*w);
        frame.repeat(frame.first());
        SnapshotWindow* fast = frame.second();
        frame->options().setValue(Key::Faster, 0);
        frame.messages.clear();
        const QStringList before = gridRows(*fast);
        for (const int column : {SnapshotWindow::SortBySize, SnapshotWindow::SortByModified,
                                 SnapshotWindow::SortByAttributes})
            fast->SortSequence(column);
        QCOMPARE(frame.messages.size(), 3);
        QVERIFY(frame.messages.first().startsWith(u"Sorting Restriction: Cannot sort by Size"_s));
        QCOMPARE(gridRows(*fast), before);
        fast->SortSequence(4); // Type still sorts
        QCOMPARE(fast->sortColumn(), 4);
    }

    // Clicks with the mouse in either window, and the arrow keys, select
    // the folder in the other window too, or say it has none, and a mode
    // that filters says it may be hiding it; with synchronisation off they
    // stay apart, and clicking the folder selected already brings the other
    // window back to it. Without automatic comparison, Compare Now asks for
    // the options first.
    void foldersFollowInTheOtherWindow() {
        Frame frame(iniPath());
        frame->options().setValue(Key::Compare, 0);
        makePair(frame, true);
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        QVERIFY(!newer->compared());
        // The options dialog shows this window's caption and the other's;
        // "Compare &Both" compares.
        QStringList boxes;
        frame.whileShown = [&](QDialog& dialog) {
            boxes << control<QLineEdit>(dialog, "txtSnap")->text()
                  << control<QLineEdit>(dialog, "txtOther")->text();
            control<QPushButton>(dialog, "cmdCompare1")->click();
            return int(QDialog::Accepted);
        };
        newer->mnuCompareNow_Click();
        QCOMPARE(boxes, (QStringList{newer->caption(), older->caption()}));
        QVERIFY(newer->compared() && older->compared());

        const QStringList subRows = words(u"b.txt c.bin"_s);
        for (const auto& [from, to] : {std::pair{newer, older}, std::pair{older, newer}}) {
            clickNode(*from, u"/sub/"_s);
            QCOMPARE(frame.active(), from);
            QCOMPARE(gridRows(*to), subRows);
            QCOMPARE(panel(to, 1), m_tree + u"/sub/"_s);
            clickNode(*from, u"/"_s);
            QCOMPARE(to->selectedKey(), u"/"_s);
        }
        clickNode(*newer, u"/newdir/"_s);
        QVERIFY(older->selectedKey().isEmpty() && older->gridModel().rowCount() == 0);
        QCOMPARE(panel(older, 1), u"No matching folder"_s);

        newer->mnuViewSynch_Click();
        QCOMPARE(frame->options().value(Key::Synch), int16_t(0));
        QVERIFY(!older->action(u"mnuViewScroll"_s)->isChecked());
        clickNode(*newer, u"/sub/"_s);
        clickNode(*older, u"/gone/"_s);
        QCOMPARE(newer->selectedKey(), u"/sub/"_s);
        frame->options().setValue(Key::Synch, 1);
        clickNode(*newer, u"/sub/"_s);
        QCOMPARE(gridRows(*older), subRows);

        // The arrow keys: up from sub to newdir (only here), then gone.
        QTest::keyClick(newer->tree(), Qt::Key_Up);
        QCOMPARE(newer->selectedKey(), u"/newdir/"_s);
        QCOMPARE(panel(older, 1), u"No matching folder"_s);
        QTest::keyClick(newer->tree(), Qt::Key_Up);
        QCOMPARE(gridRows(*older), words(u"old.txt"_s));

        // Every mode that filters may be hiding a folder the other snapshot
        // lacks, and they all say so; "All" cannot be, nor the uncompared
        // window. The mode is chosen in the show selector with the keyboard.
        QComboBox* selector = older->showSelector();
        for (const int position : {0, 1, 2, 3, 4}) {
            selector->setFocus();
            QTest::keyClick(selector, Qt::Key_Home);
            for (int step = 0; step < position; ++step)
                QTest::keyClick(selector, Qt::Key_Down);
            QCOMPARE(selector->currentIndex(), position);
            clickNode(*newer, u"/newdir/"_s);
            QCOMPARE(panel(older, 1),
                     position >= 1 ? u"No matching folder visible"_s : u"No matching folder"_s);
        }
        older->setShowPosition(-1);
        clickNode(*newer, u"/newdir/"_s);
        QCOMPARE(panel(older, 1), u"No matching folder"_s);

        // Keys from one window's root to the other's.
        using views::translateKey;
        constexpr auto Exact = engine::NameMatching::Exact, Fold = engine::NameMatching::IgnoreCase;
        QCOMPARE(translateKey(u"/sub/x/"_s, u"sub/"_s, QString(), Exact), u"/x/"_s);
        QCOMPARE(translateKey(u"/x/"_s, QString(), u"Sub/"_s, Exact), u"/Sub/x/"_s);
        QCOMPARE(translateKey(u"/SUB/x/"_s, u"sub/"_s, u"a/"_s, Exact), u"/SUB/x/"_s);
        QCOMPARE(translateKey(u"/SUB/x/"_s, u"sub/"_s, u"a/"_s, Fold), u"/a/x/"_s);
    }

    // Snapshots made on POSIX tell names apart exactly: twins that differ
    // only in case are each followed to themselves in the other window, by
    // selection and by scrolling, and twins added beside others are entries
    // only in their snapshot. The grids scroll together from whichever the
    // user scrolls, by the wheel though its window is not the active one;
    // moved by the program, the other does not lead.
    void caseTwinsAreFollowedExactlyAndScrollTogether() {
        const QString twins = path(u"Twins"_s);
        QStringList files = {u"Dir/upper"_s, u"dir/lower"_s, u"README"_s, u"readme"_s, u"run.sh"_s};
        for (int i = 0; i < 60; ++i)
            files << u"m%1"_s.arg(i, 2, 10, QLatin1Char('0'))
                  << u"z%1"_s.arg(i, 2, 10, QLatin1Char('0'));
        writeFiles(twins, files, Fixed);
        Frame frame(iniPath());
        frame->resize(1000, 800);
        frame->show();
        QVERIFY(frame->NewSnapshot(twins, true, true, false, 1));
        writeFiles(twins, {u"RUN.sh"_s, u"DIR/x"_s}, Fixed);
        frame.repeat();
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        QCOMPARE(panel(newer, 2), u"1 extra file, 1 extra folder"_s);
        QCOMPARE(panel(older, 2), u"No changes in selected folder"_s);
        newer->setShowPosition(1);
        QCOMPARE(gridRows(*newer), (QStringList{u"DIR"_s, u"RUN.sh"_s}));
        newer->setShowPosition(0);
        for (const QString& name : {u"dir"_s, u"Dir"_s}) {
            QVERIFY(newer->selectFolder(u'/' + name + u'/'));
            QCOMPARE(older->selectedKey(), u'/' + name + u'/');
            QCOMPARE(gridRows(*older), gridRows(*newer));
        }

        QVERIFY(newer->selectFolder(u"/"_s));
        const auto topName = [](SnapshotWindow* w) { return gridRows(*w).at(w->topRow()); };
        for (const QString& name : {u"README"_s, u"readme"_s}) {
            newer->grid()->verticalScrollBar()->setValue(rowNamed(*newer, name));
            QCOMPARE(topName(newer), name);
            QCOMPARE(topName(older), name);
        }
        const int top = newer->topRow();
        older->grid()->verticalScrollBar()->setValue(10);
        QCOMPARE(newer->topRow(), top);
        QCOMPARE(frame.active(), newer);
        wheelDown(older->grid()->viewport(), older->grid()->viewport()->rect().center());
        QVERIFY(older->topRow() > 10);
        QCOMPARE(topName(newer), topName(older));
        QCOMPARE(frame.active(), newer);
    }

    // Entries the ignore patterns leave out are neither listed nor coloured,
    // and Find Next passes them by: the change summary counts them apart,
    // and View > Show Ignored Entries (Alt+V, I) lists them greyed in tree
    // and grid.
    void ignoredEntriesAreLeftOutOrGreyed() {
        Frame frame(iniPath());
        frame->options().setPatterns(u"new*\n/gone/\n"_s);
        makePair(frame, true);
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        clickNode(*newer, u"/"_s);
        // new.txt and newdir/ (with n.txt) are ignored in the newer window,
        // gone/ in both (with old.txt in the older): a.txt and sub/ are
        // left changed.
        const QString changes = u"1 file changed, 1 folder with changes, "_s;
        QCOMPARE(panel(newer, 2), changes + u"4 ignored"_s);
        QCOMPARE(panel(older, 2), changes + u"2 ignored"_s);
        QCOMPARE(gridRows(*newer), words(u"a.txt keep.txt sub"_s));
        QVERIFY(!node(*newer, u"/newdir/"_s).isValid());
        QTest::keyClick(newer->grid(), Qt::Key_F, Qt::ControlModifier);
        QTest::keyClicks(newer->findBar()->textBox(), u"new"_s);
        QVERIFY(!newer->findBar()->findNext());
        QTest::keyClick(newer->findBar()->textBox(), Qt::Key_Escape);

        frame.focus();
        menuByKeys(frame.window.get(), Qt::Key_V, Qt::Key_I);
        QTRY_VERIFY(newer->action(u"mnuViewIgnored"_s)->isChecked());
        const QColor grey = colourOf(node(*newer, u"/newdir/"_s).data(Qt::ForegroundRole));
        QVERIFY(grey.isValid());
        QCOMPARE(cellColour(*newer, u"new.txt"_s, engine::NameColumn, Qt::ForegroundRole), grey);
        QVERIFY(!cell(*newer, u"new.txt"_s, engine::NameColumn, Qt::BackgroundRole).isValid());
        // Still not differences; the other window keeps its own choice.
        QCOMPARE(panel(newer, 2), changes + u"4 ignored"_s);
        QCOMPARE(rowNamed(*older, u"gone"_s), -1);
    }

    // Ctrl+F opens the find bar; typing filters the folder's rows as it is
    // typed, Enter and F3 go to the next name anywhere in the snapshot with
    // the paired window following, and Esc lists the folder whole again.
    void findBarFiltersAndFindsAcrossFolders() {
        Frame frame(iniPath());
        makePair(frame, true);
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        clickNode(*newer, u"/"_s);
        const QStringList whole = gridRows(*newer);
        QTest::keyClick(newer->grid(), Qt::Key_F, Qt::ControlModifier);
        QLineEdit* text = newer->findBar()->textBox();
        QVERIFY(text->isVisible());
        QTRY_VERIFY(text->hasFocus());
        const auto typed = [&](const QString& part) {
            text->clear();
            QTest::keyClicks(text, part);
            return gridRows(*newer);
        };
        QCOMPARE(typed(u"EW"_s), words(u"new.txt newdir"_s));
        QCOMPARE(panel(newer, 3), u"Find: 2 of %1 rows"_s.arg(whole.size()));
        QCOMPARE(typed(u"*.TXT"_s), words(u"a.txt keep.txt new.txt"_s));
        QCOMPARE(shownListOf(*newer).rows->rowCount(), 3); // export takes what is shown

        // Nothing here is called b.txt: Enter goes to sub/, and the other
        // window follows.
        QCOMPARE(typed(u"b.txt"_s), QStringList());
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(newer->selectedKey(), u"/sub/"_s);
        QCOMPARE(gridRows(*newer), words(u"b.txt"_s));
        QCOMPARE(newer->grid()->currentIndex().row(), 0);
        QCOMPARE(gridRows(*older), words(u"b.txt c.bin"_s));

        // F3 goes on to the next folder holding the name, round by the top.
        typed(u"n*.txt"_s);
        for (const QString& folder : {u"/"_s, u"/newdir/"_s}) {
            QTest::keyClick(newer->grid(), Qt::Key_F3);
            QCOMPARE(newer->selectedKey(), folder);
        }

        text->setFocus();
        QTest::keyClick(text, Qt::Key_Escape);
        QVERIFY(!newer->findBar()->isVisible());
        clickNode(*newer, u"/"_s);
        QCOMPARE(gridRows(*newer), whole);
        QVERIFY(!panel(newer, 3).startsWith(u"Find:"_s));
    }

    // While a comparison runs, its meter lets events through. Every command
    // a user gives then, with the mouse or the keys, is refused: the
    // comparison ends, and the windows show what they show after the same
    // comparison undisturbed. The meter's Cancel still works.
    void commandsWaitForARunningOperation() {
        // Enough entries for the comparison to update its meter.
        for (int i = 0; i < 1200; ++i)
            writeFile(m_tree + u"/sub/many%1.txt"_s.arg(i), "x");
        Frame frame(iniPath());
        frame->options().setValue(Key::Compare, 0);
        makePair(frame, true);
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        frame.whileShown = [&](QDialog& dialog) {
            if (auto* both = dialog.findChild<QPushButton*>(u"cmdCompare1"_s))
                both->click();
            return int(QDialog::Accepted);
        };

        bool disturbed = false;
        whenBusy(frame, [&] {
            disturbed = true;
            clickNode(*newer, u"/gone/"_s);
            clickNode(*older, u"/"_s);
            QTest::keyClick(newer->tree(), Qt::Key_Down);
            clickHeading(newer->grid()->horizontalHeader(), engine::SizeColumn);
            const QRect firstRow = newer->grid()->visualRect(newer->gridModel().index(0, 0));
            QTest::mouseDClick(newer->grid()->viewport(), Qt::LeftButton, {}, firstRow.center());
            QTest::keyClick(newer->grid(), Qt::Key_Return);
            wheelDown(newer->grid()->viewport(), firstRow.center());
            QTest::mouseClick(newer->showSelector(), Qt::LeftButton);
            QTest::keyClick(newer->showSelector(), Qt::Key_Down);
            QMenuBar* bar = frame->menuBar();
            for (QAction* menu : bar->actions())
                QTest::mouseClick(bar, Qt::LeftButton, {}, bar->actionGeometry(menu).center());
            QTest::keyClick(frame.window.get(), Qt::Key_V, Qt::AltModifier);
            for (const QString& key :
                 words(u"Ctrl+R F5 Ctrl+S Ctrl+W Ctrl+N Ctrl+O Ctrl+P Ctrl+Q F1"_s))
                QTest::keySequence(frame.window.get(), QKeySequence(key));
            for (const QString& button :
                 {u"New"_s, u"Open"_s, u"Save As"_s, u"Repeat"_s, u"Compare"_s, u"Print"_s})
                frame.clickToolbar(button);
            auto* split = newer->findChild<views::SplitterBar*>(u"picSplit"_s);
            QTest::mousePress(split, Qt::LeftButton, {}, QPoint(2, 10));
            QTest::mouseRelease(split, Qt::LeftButton, {}, QPoint(-100, 10));
            QVERIFY(!newer->parentWidget()->close());
            QVERIFY(!frame->close());
            QVERIFY(!QApplication::activePopupWidget());
        });
        frame.clickToolbar(u"Compare"_s);
        QVERIFY(disturbed);
        QVERIFY(newer->compared() && older->compared());
        QCOMPARE(frame.dialogs, QStringList{u"kestrel::settings::ConfigDialog"_s});
        QVERIFY(frame.proposedSave.isEmpty() && frame.opened.isEmpty());
        QCOMPARE(frame->snapshotWindows(), (QList<SnapshotWindow*>{older, newer}));
        QVERIFY(frame->isVisible());
        const QStringList disturbedView = shown(*newer) + shown(*older);

        // The same comparison undisturbed.
        for (SnapshotWindow* w : {older, newer})
            views::resetComparison(*w);
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        frame.clickToolbar(u"Compare"_s);
        QCOMPARE(shown(*newer) + shown(*older), disturbedView);

        // A scan cancelled from its meter: the frame's input is refused, the
        // meter's is not.
        frame.closeWithoutSaving(*newer);
        bool cancelled = false;
        whenBusy(frame, [&] {
            frame.clickToolbar(u"Repeat"_s);
            frame->meterWindow().meterShown(); // as after a second
            QTest::mouseClick(frame->meterWindow().cancelButton(), Qt::LeftButton);
            cancelled = true;
        });
        QVERIFY(!frame->NewSnapshot(m_tree, true, true, false, 2));
        QVERIFY(cancelled);
        QCOMPARE(frame->snapshotWindows().size(), 1);
    }

    // A comparison root set in one window is the pair's: the other window
    // takes the matching folder, the two compare root with root, and the
    // Compare menu marks it. A folder the other snapshot lacks leaves the
    // pair uncompared. (The file list's tests see what lies outside.)
    void comparisonRootBelongsToThePair() {
        Frame frame(iniPath());
        makePair(frame);
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        QVERIFY(newer->selectFolder(u"/sub/"_s));
        newer->action(u"mnuCompareRoot"_s)->trigger();
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(w->rootKey(), u"sub/"_s);
            QVERIFY(w->compared());
            QCOMPARE(w->selectedKey(), u"/sub/"_s);
            QCOMPARE(panel(w, 2), u"1 file changed"_s);
            QCOMPARE(cellColour(*w, u"b.txt"_s, engine::ModifiedColumn, Qt::BackgroundRole), Cyan);
        }
        QVERIFY(frame.messages.isEmpty());
        // The Compare menu marks the root.
        Q_EMIT newer->menus().at(2)->aboutToShow();
        QVERIFY(newer->action(u"mnuCompareRoot"_s)->isChecked());

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
        QCOMPARE(panel(newer, 2), AllChanges);
    }

    // After Repeat a list the user sorted keeps its sort while the windows
    // do not scroll together; when they do, it is in name order, ascending
    // whatever order the user's sort had.
    void repeatKeepsTheSortOrNamesAscending() {
        for (const bool synch : {true, false}) {
            Frame frame(iniPath());
            showLarge(frame);
            frame->options().setValue(Key::Synch, synch ? 1 : 0);
            QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
            SnapshotWindow* w = frame.active();
            for (int click = 0; click < 2; ++click)
                clickHeading(w->grid()->horizontalHeader(), engine::SizeColumn);
            QCOMPARE(w->sortColumn(), SnapshotWindow::SortBySize);
            QVERIFY(w->sortDescending());
            const QStringList bySize = gridRows(*w);
            frame.repeat();
            QVERIFY(w->compared());
            QCOMPARE(w->sortColumn(),
                     synch ? SnapshotWindow::SortByName : SnapshotWindow::SortBySize);
            QCOMPARE(w->sortDescending(), !synch);
            QCOMPARE(gridRows(*w), synch ? words(u"a.txt gone keep.txt sub"_s) : bySize);
        }
    }

    // A folder that holds only files lists them, alone and compared: the
    // tree shows its top alone and unexpanded, the grid every file, and
    // export takes them all with the summary. (Sorting and colours are the
    // pair's tests', and the export's of such a pair the dialogs'.)
    void aFolderOfFilesListsItsFiles() {
        const QString flat = path(u"Flat"_s);
        writeFiles(flat, words(u"one.txt two.txt three.txt"_s), Fixed);
        Frame frame(iniPath());
        QVERIFY(frame.showActive());
        QVERIFY(frame->NewSnapshot(flat, true, true, false, 1));
        SnapshotWindow* older = frame.active();
        const views::FolderTreeModel& tree = older->treeModel();
        QCOMPARE(tree.rowCount(tree.topIndex()), 0);
        QVERIFY(!older->tree()->isExpanded(tree.topIndex()));
        QCOMPARE(panel(older, 3), u"23 bytes in 3 files "_s);
        QCOMPARE(gridRows(*older), words(u"one.txt three.txt two.txt"_s));

        writeFile(flat + u"/two.txt"_s, "two, longer");
        writeFile(flat + u"/four.txt"_s, "four");
        QVERIFY(QFile::remove(flat + u"/one.txt"_s));
        QTest::keyClick(frame.window.get(), Qt::Key_R, Qt::ControlModifier);
        SnapshotWindow* newer = frame.second();
        QVERIFY(newer->compared());
        QCOMPARE(newer->treeModel().rowCount(newer->treeModel().topIndex()), 0);
        for (SnapshotWindow* w : {older, newer})
            QCOMPARE(panel(w, 2), u"1 extra file, 1 file changed"_s);
        // What export and the report read is what the grid shows.
        const output::ShownList shown = views::shownListOf(*newer);
        QCOMPARE(shown.rowCount(), 3);
        QCOMPARE(shown.changesPanel, u"1 extra file, 1 file changed"_s);
        newer->setChanged(false);
    }

    // Line breaks and carriage returns in names show as a mark in the tree,
    // the grid and the status bar; the names themselves stay whole.
    void lineBreaksInNamesShowAsAMark() {
        const QString odd = path(u"Odd"_s);
        writeFiles(odd, {u"two\nlines/car\rriage.txt"_s}, Fixed);
        Frame frame(iniPath(), Frame::Shown);
        QVERIFY(frame->NewSnapshot(odd, true, true, false, 1));
        SnapshotWindow* w = frame.active();
        const QString mark = QChar(engine::LineBreakMark);
        QCOMPARE(node(*w, u"/two\nlines/"_s).data().toString(), u"two"_s + mark + u"lines"_s);
        clickNode(*w, u"/two\nlines/"_s);
        QCOMPARE(w->selectedKey(), u"/two\nlines/"_s);
        QCOMPARE(gridRows(*w), QStringList{u"car\rriage.txt"_s});
        QCOMPARE(cellText(*w, u"car\rriage.txt"_s, 0), u"car"_s + mark + u"riage.txt"_s);
        QVERIFY(panel(w, 1).endsWith(u"/two"_s + mark + u"lines/"_s));
    }

    // A double-click on a folder row opens the folder in the tree; Branch
    // makes the selected folder the root and a snapshot of it the second
    // window, which compares against it; Ctrl+W closes the active window,
    // Ctrl+R repeats.
    void branchDoubleClicksAndKeys() {
        Frame frame(iniPath());
        QVERIFY(frame.showActive());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        SnapshotWindow* w = frame.active();
        w->grdFiles_DblClick(rowNamed(*w, u"sub"_s));
        QCOMPARE(w->selectedKey(), u"/sub/"_s);

        shell::mnuFileBranch_Click(*frame.window, *w);
        QCOMPARE(w->rootKey(), u"sub/"_s);
        SnapshotWindow* branch = frame.second();
        QCOMPARE(branch->snapshot().header.rootFolder, m_tree + u"/sub/"_s);
        QCOMPARE(branch->number(), int16_t(2));
        QCOMPARE(panel(branch, 2), u"No changes in selected folder"_s);
        QVERIFY(!branch->action(u"mnuFileBranch"_s)->isEnabled());

        frame.saveQuestionAnswer = views::SaveAnswer::No;
        QTest::keyClick(frame.window.get(), Qt::Key_W, Qt::ControlModifier); // the branch
        QTRY_COMPARE(frame->snapshotWindows().size(), 1);
        QTRY_COMPARE(frame.active(), w);
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
        const QByteArray args = QFile::encodeName(path(u"args"_s));
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
        const QString record = path(u"record"_s);
        put(QFile::encodeName(record), recorder, 0755);
        const auto recorded = [&] { return readFile(QString::fromUtf8(args)); };

        Frame frame(iniPath());
        frame->launcher().setDesktop({[&frame](const QUrl& url) {
                                          frame.opened << url;
                                          return true;
                                      },
                                      shell::Launcher::systemDesktop().startProgram});
        QVERIFY(frame.showActive());
        const QString storedRoot = engine::storedPath(engine::nativeText(root.toStdString()));
        QVERIFY(frame->NewSnapshot(storedRoot, true, true, false, 1));
        SnapshotWindow* w = frame.active();
        QCOMPARE(w->snapshot().header.rootFolder, m_dir->path() + u"/Odd\\xE9/"_s);
        // The file's bytes, as the desktop's launcher reads them from the URL.
        const auto openedLast = [&frame] {
            return QByteArray::fromPercentEncoding(frame.opened.last().toEncoded().mid(7));
        };
        QVERIFY(w->selectFolder(u"/in/"_s));
        pressEnter(*w, u"caf\\xE9.txt"_s);
        QCOMPARE(openedLast(), folder + "caf\xE9.txt");
        pressEnter(*w, u"café.txt"_s);
        QCOMPARE(openedLast(), folder + "caf\xC3\xA9.txt");
        pressEnter(*w, u"run\\xE9"_s); // started as a program
        QTRY_COMPARE(recorded(), folder + "run\xE9\n");
        QFile::remove(QString::fromUtf8(args));

        // The external program, on the file and its counterpart in a
        // repeated snapshot.
        frame->options().setValue(Key::Shell, 1);
        control<QLineEdit>(frame->configDialog(), "txtProgram")->setText(record);
        frame.repeat(w);
        SnapshotWindow* repeated = frame.second();
        QCOMPARE(repeated->snapshot().header.rootFolder, storedRoot);
        QVERIFY(repeated->selectFolder(u"/in/"_s));
        QCOMPARE(panel(repeated, 2), u"No changes in selected folder"_s);
        pressEnter(*repeated, u"caf\\xE9.txt"_s);
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
        SnapshotWindow *older = frame.first(), *newer = frame.second();
        const QString program = path(u"cmp"_s);
        writeFile(program, "#!/bin/sh\n");
        frame.whileShown = [&](QDialog& dialog) {
            control<QComboBox>(dialog, "cboChanged")->setCurrentIndex(6);
            for (const char* box : {"chkAlways", "optShell1", "chkExplore", "chkEmpty"})
                control<QAbstractButton>(dialog, box)->click();
            control<QLineEdit>(dialog, "txtProgram")->setText(program);
            control<QPushButton>(dialog, "cmdSave")->click();
            return int(QDialog::Accepted);
        };
        frame->mnuFileConfig_Click();
        const QColor yellow(255, 255, 0);
        for (SnapshotWindow* w : {older, newer}) {
            QCOMPARE(colourOf(node(*w, u"/sub/"_s).data(Qt::BackgroundRole)), yellow);
            QCOMPARE(cellColour(*w, u"a.txt"_s, engine::SizeColumn, Qt::BackgroundRole), yellow);
            QVERIFY(gridRows(*w).contains(u"sub/b.txt"_s));
        }
        QVERIFY(!gridRows(*newer).contains(u"gone"_s));
        QVERIFY(gridRows(*older).contains(u"gone"_s)); // it is not empty there

        newer->grdFiles_DblClick(rowNamed(*newer, u"a.txt"_s));
        newer->grdFiles_DblClick(rowNamed(*newer, u"new.txt"_s)); // nothing to compare it with
        QCOMPARE(frame.started,
                 (QList<QStringList>{{program, m_tree + u"/a.txt"_s, m_tree + u"/a.txt"_s}}));
        QVERIFY(frame.titles.isEmpty());
        newer->grdFiles_DblClick(rowNamed(*newer, u"sub"_s));
        QCOMPARE(frame.opened, QList<QUrl>{QUrl::fromLocalFile(m_tree + u"/sub"_s)});
        QCOMPARE(newer->selectedKey(), u"/"_s);
    }

    // The row the keyboard stands on is selected, and still shows its
    // colours: the first row's Changed cell right after the comparison, in
    // the active window and in the other, and a clicked row's No Match
    // text. Read from the pixels of the grid as drawn. Under a dark palette
    // a highlight colour that would vanish on the background is moved away
    // from it; light defaults stay as chosen.
    void selectedRowsKeepTheirColours() {
        const QColor darkBase = views::darkPalette().color(QPalette::Base);
        const QColor blue = views::readableOn(QColor(0, 0, 255), darkBase, 3.0);
        QVERIFY2(views::contrastRatio(blue, darkBase) >= 3.0, qPrintable(blue.name()));
        QCOMPARE(views::readableOn(Red, Qt::white, 3.0), Red);
        Frame frame(iniPath());
        makePair(frame, true);
        const auto distance = [](const QColor& a, const QColor& b) {
            return std::hypot(a.red() - b.red(), a.green() - b.green(), a.blue() - b.blue());
        };
        for (SnapshotWindow* w : {frame.second(), frame.first()}) {
            QCOMPARE(gridRows(*w).first(), u"a.txt"_s);
            QVERIFY(w->grid()->selectionModel()->isRowSelected(0));
            const QColor selection = w->grid()->palette().color(QPalette::Highlight);
            const QColor selected = paintedCell(*w, 0, engine::SizeColumn).background;
            QVERIFY2(distance(selected, Cyan) < distance(selected, selection),
                     qPrintable(selected.name()));
            w->grid()->clearSelection();
            QVERIFY2(paintedCell(*w, 0, engine::SizeColumn).background != selected,
                     "the selection does not show");
        }

        SnapshotWindow* w = frame.second();
        const int newRow = rowNamed(*w, u"new.txt"_s);
        clickIndex(w->grid(), gridIndex(*w, u"new.txt"_s, 0));
        QVERIFY(w->grid()->selectionModel()->isRowSelected(newRow));
        const QColor text = paintedCell(*w, newRow, engine::NameColumn).text;
        for (const auto role : {QPalette::Text, QPalette::HighlightedText})
            QVERIFY2(distance(text, Red) < distance(text, w->grid()->palette().color(role)),
                     qPrintable(text.name()));
    }

    // A damaged snapshot opens no window: its first entry, which every walk
    // of the snapshot meets, made its own parent (the file list's tests see
    // the other damaged links). The program goes on as before.
    void damagedSnapshotOpensNoWindow() {
        const QString good = path(u"Tree.#01"_s);
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        frame.saveAs(*frame.active(), good);
        // Lines 2.. are the entries: attributes, date, next sibling, count,
        // name, parent, size, version.
        QList<QByteArray> lines = readFile(good).split('\n');
        QList<QByteArray> items = lines[2].split(',');
        items[5] = "1";
        lines[2] = items.join(',');
        const QString damaged = path(u"Damaged.#01"_s);
        writeFile(damaged, lines.join('\n'));
        frame.messages.clear();
        QVERIFY(!frame->OpenSnapshot(damaged));
        QCOMPARE(frame->snapshotWindows().size(), 1);
        QCOMPARE(frame.messages, QStringList{u"Invalid Snapshot: Subscript out of range"_s});
        QVERIFY(frame->OpenSnapshot(good));
    }

    // A file that became set-user-ID is called out first in the summary, its
    // name bold in the "No Match" colour; a changed owner-write bit is a
    // permission change even with no attribute compared.
    void dangerousAccessIsCalledOut() {
        Frame frame(iniPath(), Frame::Shown);
        const QByteArray keep = QFile::encodeName(m_tree + u"/keep.txt"_s);
        QCOMPARE(::chmod(keep.constData(), 0640), 0);
        QVERIFY(frame->NewSnapshot(m_tree, true, true, false, 1));
        QCOMPARE(::chmod(keep.constData(), 04750), 0);
        QCOMPARE(::chmod(QFile::encodeName(m_tree + u"/a.txt"_s).constData(), 0444), 0);
        QTest::keyClick(frame.window.get(), Qt::Key_R, Qt::ControlModifier);
        SnapshotWindow* newer = frame.second();
        QVERIFY(newer && newer->compared());
        QCOMPARE(panel(newer, 2),
                 u"1 new set-user-ID file, 2 changed files, 2 permission changes"_s);
        QCOMPARE(cellColour(*newer, u"keep.txt"_s, engine::NameColumn, Qt::ForegroundRole), Red);
        QVERIFY(cell(*newer, u"keep.txt"_s, 0, Qt::FontRole).value<QFont>().bold());
        QVERIFY(!cell(*newer, u"a.txt"_s, engine::NameColumn, Qt::FontRole).isValid());
        QCOMPARE(panel(frame.first(), 2), u"2 changed files, 2 permission changes"_s);
    }

    // The models keep Qt's rules through a repeat, show modes, sorting and
    // sub-folders on a snapshot of a few thousand entries.
    void modelsKeepTheRules() {
        const QString many = path(u"Many"_s);
        for (int d = 0; d < 20; ++d) {
            const QString folder = many + u"/d%1/e%2"_s.arg(d).arg(d % 3);
            QVERIFY(QDir().mkpath(folder));
            for (int f = 0; f < 100; ++f)
                writeFile(folder + u"/f%1"_s.arg(f), QByteArray(f, 'x'));
        }
        Frame frame(iniPath());
        QVERIFY(frame->NewSnapshot(many, true, true, false, 1));
        SnapshotWindow* w = frame->activeSnapshotWindow();
        const auto mode = QAbstractItemModelTester::FailureReportingMode::QtTest;
        QAbstractItemModelTester treeTester(const_cast<views::FolderTreeModel*>(&w->treeModel()),
                                            mode);
        QAbstractItemModelTester gridTester(const_cast<views::FileGridModel*>(&w->gridModel()),
                                            mode);
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
        QCOMPARE(w->gridModel().rowCount(), w->snapshot().entryCount);
    }
};

int main(int argc, char** argv) {
    return runWindowTest<SnapshotWindowTest>(argc, argv);
}

#include "SnapshotWindowTest.moc"
