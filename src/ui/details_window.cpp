// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/details_window.h"

namespace vornalux {

FrmDetails::FrmDetails(const FileTable& table, const FragmentLists& fragmented,
                       const RunFlags& flags)
    : Form("View details"), table_(table), fragmented_(fragmented), flags_(flags) {
  Command1.click = [this] { Command1_Click(); };
  Command2.click = [this] { Command2_Click(); };
  Command3.click = [this] { Command3_Click(); };
}

void FrmDetails::Open() {
  if (!flags_.ClassListsValid && !flags_.AnalysisValid) return;
  Command2.enabled = flags_.ClassListsValid != False;
  Command3.enabled = flags_.ClassListsValid != False;
  Command1_Click();
  ShowInFront();
}

void FrmDetails::Begin(const Button& button) {
  for (Button* other : {&Command1, &Command2, &Command3}) other->marked = other == &button;
  ListView1.Clear();
}

void FrmDetails::List(const std::vector<std::string>& paths, std::size_t slots) {
  for (std::size_t i = 0; i < slots; ++i) {
    if (!paths[i].empty()) ListView1.Add(paths[i]);
  }
}

// The last slot of a class list is never listed.
void FrmDetails::ListClass(const PathList& list) {
  if (list.count > 0) List(list.paths, list.paths.size() - 1);
}

void FrmDetails::Command1_Click() {
  Begin(Command1);
  List(fragmented_.FragNames, fragmented_.FragNames.size());
}

void FrmDetails::Command2_Click() {
  Begin(Command2);
  ListClass(table_.OptimizeFiles);
}

void FrmDetails::Command3_Click() {
  Begin(Command3);
  ListClass(table_.PrefetchFiles);
  ListClass(table_.DirsToMove);
}

}  // namespace vornalux
