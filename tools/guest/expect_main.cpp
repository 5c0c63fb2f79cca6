// SPDX-License-Identifier: GPL-2.0-or-later
// vornalux_nt_expect IMAGE LETTER FILES ARGUMENT...: carries out a job on a FAT image as the
// Windows program should have, in the portable program on a machine that answers as Windows' FAT
// driver does. The log goes to FILES.log, the report to FILES.txt.
#include <fstream>
#include <iostream>

#include "app/program.h"
#include "host/image/opening/image_file.h"
#include "host/simulated/simulated_platform.h"

namespace vornalux {
namespace {

int Expect(const std::string& image, char letter, const std::string& files,
           const std::string& arguments) {
  OpenOptions options;
  options.writable = true;
  OpenReport report;
  const std::unique_ptr<MountedVolume> volume = OpenImage(image, options, report);
  SimulatedPlatform machine({.windows_folder = "X:\\reactos"});
  machine.Log().SetRecording(false);
  machine.AddDrive(letter, drive_type::kFixed);
  machine.Mount(letter, *volume);
  machine.UseFatDriver();
  Program program(machine.All());
  const JobOutcome outcome = program.launcher.process_cmd_line(arguments);
  machine.User().SaveAs("report");
  program.main_window.savereport.Click();
  for (const ShownBox& box : machine.User().Boxes()) std::cerr << "box: " << box.text << "\n";
  std::ofstream(files + ".log", std::ios::binary) << program.debug_window.DBGTXT.text();
  std::ofstream text(files + ".txt", std::ios::binary);
  for (const auto& [path, content] : machine.Shell().files) text << content;
  program.main_window.engine.volume.Close();
  return volume->Close() == error::kSuccess && outcome == JobOutcome::Done ? 0 : 1;
}

}  // namespace
}  // namespace vornalux

int main(int count, char** words) {
  if (count < 5) {
    std::cerr << "usage: vornalux_nt_expect IMAGE LETTER FILES ARGUMENT...\n";
    return 2;
  }
  std::string arguments = words[4];
  for (int i = 5; i < count; ++i) arguments += std::string(" ") + words[i];
  return vornalux::Expect(words[1], words[2][0], words[3], arguments);
}
