// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <string>
#include <vector>

#include "engine/analysis.h"
#include "forms/controls.h"
#include "volume/file_table.h"
#include "volume/run_flags.h"

namespace vornalux {

// The files behind the map's candidate colours.
class FrmDetails final : public Form {
 public:
  FrmDetails(const FileTable& table, const FragmentLists& fragmented, const RunFlags& flags);

  ListView ListView1{"Fragmented files"};
  Label Label5{"candidate for:"};
  // "sys area" is yellow here and light blue on the map.
  std::array<Shape, 3> Shape2{Shape{0x0000FF}, Shape{0xFF0000}, Shape{0x00FFFF}};
  std::array<Label, 3> Label4{Label{"defrag"}, Label{"optimize"}, Label{"sys area"}};
  std::array<Label, 3> counts;  // beside the captions: "[12]" or "N/A"
  Button Command1{"..."};
  Button Command2{"..."};
  Button Command3{"..."};

  // Lists the fragmented files and shows the window, when there has been an analysis.
  void Open();

 private:
  void Command1_Click();
  void Command2_Click();
  void Command3_Click();
  // Begins the list of this button.
  void Begin(const Button& button);
  // The names in the first `slots` slots, empty ones left out.
  void List(const std::vector<std::string>& paths, std::size_t slots);
  void ListClass(const PathList& list);

  const FileTable& table_;
  const FragmentLists& fragmented_;
  const RunFlags& flags_;
};

}  // namespace vornalux
