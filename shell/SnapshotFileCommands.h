#pragma once

namespace kestrel::views {
class SnapshotWindow;
}

namespace kestrel::shell {

class MainWindow;

// The commands of a snapshot window that store, repeat and name its
// snapshot. The frame carries them out: it knows the file dialogs, the
// recent list and how a new snapshot window is made.

// Connects the window's Save As, Repeat, Branch and Title commands to the
// functions below.
void connectFileCommands(MainWindow& frame, views::SnapshotWindow& window);

// Saves the snapshot under a name the user chooses, proposing the next free
// numbered name beside its file (or in the folder the file dialogs used
// last). A failed save keeps the old name and the changed mark.
void mnuFileSaveAs_Click(MainWindow& frame, views::SnapshotWindow& window);
// A new snapshot of the same folder with the same choices, numbered next.
void mnuFileRepeat_Click(MainWindow& frame, views::SnapshotWindow& window);
// Makes the selected folder the comparison root, then a new snapshot of it,
// numbered as a repeat would be: it is the second snapshot of the pair.
void mnuFileBranch_Click(MainWindow& frame, views::SnapshotWindow& window);
// Asks for the snapshot's title; a new one (leading blanks dropped, not
// only different in case) marks the snapshot changed.
void mnuFileProps_Click(MainWindow& frame, views::SnapshotWindow& window);

// Form_QueryUnload: whether the window may close; a changed snapshot asks
// to be saved first, and stays open when the user cancels or the save
// fails. Never while an operation runs on it.
bool queryUnload(MainWindow& frame, views::SnapshotWindow& window);

} // namespace kestrel::shell
