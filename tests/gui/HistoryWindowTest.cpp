// The History window: opened from the File menu and by a drop, its folders,
// entries and lines of life followed by mouse and keys, and two generations
// opened as a compared pair.

#include "TestFrame.h"

#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Progress.h"
#include "shell/StartUp.h"
#include "views/HistoryModels.h"
#include "views/HistoryWindow.h"

#include <sys/stat.h>

using namespace kestrel;
using namespace Qt::StringLiterals;

namespace {

// Scans folder and saves it as file.
void saveSnapshotOf(const QString& folder, const QString& file) {
    engine::Snapshot s;
    s.header.rootFolder = folder + u'/';
    s.header.recurse = s.header.hidden = true;
    s.header.fileName = file;
    engine::ProgressMeter meter;
    QVERIFY(engine::CreateSnapshot(s, engine::ScanSettings{}, meter).ok);
    QVERIFY(engine::SaveSnapshot(s, meter).ok);
}

QStringList column(const QAbstractItemModel& model, int column) {
    QStringList texts;
    for (int row = 0; row < model.rowCount(); ++row)
        texts << model.index(row, column).data().toString();
    return texts;
}

} // namespace

class HistoryWindowTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;
    QString m_tree;

    QString ini() const { return m_home.filePath(u"Kestrel.ini"_s); }
    QString file(int number) const {
        return m_home.filePath(u"Data.#%1"_s.arg(number, 2, 10, QLatin1Char('0')));
    }

private Q_SLOTS:
    void initTestCase() {
        m_tree = m_home.filePath(u"Data"_s);
        writeFiles(m_tree, {u"a.txt"_s, u"sub/b.txt"_s}, QDateTime::currentDateTime());
        const QByteArray b = QFile::encodeName(m_tree + u"/sub/b.txt"_s);
        QCOMPARE(::chmod(b.constData(), 0644), 0);
        saveSnapshotOf(m_tree, file(1));
        writeFile(m_tree + u"/sub/b.txt"_s, "bbbb");
        QCOMPARE(::chmod(b.constData(), 04700), 0);
        saveSnapshotOf(m_tree, file(2));
        QVERIFY(QFile::remove(m_tree + u"/a.txt"_s));
        writeFiles(m_tree, {u"new/c.txt"_s}, QDateTime::currentDateTime());
        saveSnapshotOf(m_tree, file(3));
    }

    void openedFromTheMenuAndFollowedByMouseAndKeys() {
        Frame frame(ini());
        frame->chooseHistoryFiles = [this] { return QStringList{file(2)}; };
        // File, then Open History, by keys.
        QVERIFY(frame.showActive());
        menuByKeys(frame.window.get(), Qt::Key_F, Qt::Key_H);
        QTRY_VERIFY(frame->findChild<views::HistoryWindow*>());
        auto* history = frame->findChild<views::HistoryWindow*>();
        QCOMPARE(history->windowTitle(), u"History of "_s + m_tree + u'/');

        // A row for each snapshot of the series, with what changed.
        const QAbstractItemModel& generations = *history->generations()->model();
        QCOMPARE(column(generations, views::GenerationTableModel::NumberColumn),
                 words(u"#01 #02 #03"_s));
        QCOMPARE(column(generations, views::GenerationTableModel::ChangesColumn),
                 (QStringList{QString(), u"1 new set-user-ID file; +0 \u22120 ~1"_s,
                              u"+2 \u22121 ~0"_s}));

        // The top lists its entries across the snapshots: a.txt gone in the
        // third, its cell marked there. A click on a heading sorts, again
        // the other way.
        const QAbstractItemModel& files = *history->files()->model();
        const QStringList byName{u"new/"_s, u"sub/"_s, u"a.txt"_s};
        QCOMPARE(column(files, 0), byName);
        QCOMPARE(files.index(2, 3).data().toString(), u"\u2014"_s);
        QVERIFY(files.index(2, 3).data(Qt::BackgroundRole).isValid());
        QVERIFY(!files.index(2, 2).data(Qt::BackgroundRole).isValid());
        clickHeading(history->files()->horizontalHeader(), 0);
        QCOMPARE(column(files, 0), (QStringList{u"a.txt"_s, u"sub/"_s, u"new/"_s}));
        clickHeading(history->files()->horizontalHeader(), 0);
        QCOMPARE(column(files, 0), byName);

        // A click on a folder lists it; a click on an entry shows its life.
        QTreeView* tree = history->folders();
        const QModelIndex top = tree->model()->index(0, 0);
        tree->expand(top);
        clickIndex(tree, tree->model()->index(1, 0, top));
        QCOMPARE(column(files, 0), QStringList{u"b.txt"_s});
        QCOMPARE(column(files, 2), QStringList{u"4"_s});
        clickIndex(history->files(), files.index(0, 0));
        const QAbstractItemModel& life = history->lifeModel();
        // sub/b.txt held its own name, then "bbbb", and became set-user-ID:
        // the change names what changed and calls it out, as does its name.
        QCOMPARE(column(life, views::LineOfLifeModel::SizeColumn), words(u"9 4 4"_s));
        QCOMPARE(column(life, views::LineOfLifeModel::PermissionsColumn),
                 words(u"-rw-r--r-- -rws------ -rws------"_s));
        QVERIFY(files.index(0, 0).data(Qt::FontRole).value<QFont>().bold());
        const QStringList changes = column(life, views::LineOfLifeModel::ChangeColumn);
        QCOMPARE(std::pair(changes[0], changes[2]), std::pair(QString(), QString()));
        QVERIFY2(changes[1].startsWith(u"changed: size"_s) &&
                     changes[1].endsWith(u"permissions (now set-user-ID)"_s),
                 qPrintable(changes[1]));
        QVERIFY(!history->lineOfLife()->isColumnHidden(views::LineOfLifeModel::OwnerColumn));
        QVERIFY(history->lineOfLife()->isColumnHidden(views::LineOfLifeModel::LinkTargetColumn));

        // Folders are coloured by what changed in the snapshots chosen on
        // top: "new" came in the third.
        QTableView* table = history->generations();
        const QModelIndex added = tree->model()->index(0, 0, top);
        QCOMPARE(added.data().toString(), u"new"_s);
        QVERIFY(added.data(Qt::BackgroundRole).isValid());
        clickIndex(table, generations.index(0, 0));
        clickIndex(table, generations.index(1, 0), Qt::ControlModifier);
        QVERIFY(!added.data(Qt::BackgroundRole).isValid());
        clickIndex(table, generations.index(2, 0), Qt::ControlModifier);
        QVERIFY(added.data(Qt::BackgroundRole).isValid());

        // Two snapshots chosen, Enter: the pair opens, compared; with the
        // pair open, another is refused with a message.
        clickIndex(table, generations.index(0, 0));
        clickIndex(table, generations.index(2, 0), Qt::ControlModifier);
        QTest::keyClick(table, Qt::Key_Return);
        QCOMPARE(frame->snapshotWindows().size(), 2);
        QVERIFY(frame.second()->compared());
        QCOMPARE(frame.second()->snapshot().header.fileName, file(3));
        QTest::keyClick(table, Qt::Key_Return);
        QCOMPARE(frame.titles, QStringList{u"Compare Snapshots"_s});
        QCOMPARE(frame->snapshotWindows().size(), 2);
    }

    // Snapshot files of one folder dropped together open their history; a
    // damaged one is shown as such and left out of the comparisons. Named on
    // the command line with --history, one file stands for its series.
    void droppedOrNamedFilesOpenTheirHistory() {
        writeFile(file(4), "damaged");
        Frame frame(ini(), Frame::Shown);
        QVERIFY(dropFiles(frame.window.get(),
                          {QUrl::fromLocalFile(file(4)), QUrl::fromLocalFile(file(1)),
                           QUrl::fromLocalFile(file(3))}));
        QTRY_VERIFY(frame->findChild<views::HistoryWindow*>());
        const engine::History& h = frame->findChild<views::HistoryWindow*>()->history();
        QCOMPARE(h.generations.size(), size_t(3));
        QVERIFY(h.generations[0].readable() && !h.generations[2].readable());
        QCOMPARE(h.generations[1].changed, 1); // b.txt, from #01 to #03
        QVERIFY(QFile::remove(file(4)));

        Frame started(ini());
        shell::StartUp(*started.window, {file(1)}, true);
        auto* history = started->findChild<views::HistoryWindow*>();
        QVERIFY(history);
        QCOMPARE(history->history().generations.size(), size_t(3));
        QVERIFY(started->snapshotWindows().isEmpty());
    }
};

int main(int argc, char** argv) {
    return runWindowTest<HistoryWindowTest>(argc, argv);
}

#include "HistoryWindowTest.moc"
