// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/program.h"
#include "host/image/opening/discard_free.h"
#include "host/image/opening/image_file.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/output/debug_log.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/result/results.h"
#include "host/terminal/session/terminal_platform.h"
#include "host/terminal/user/terminal_desktop.h"

namespace vornalux {

// The volumes of one invocation under their drive letters, and the program that works on them.
class Session {
 public:
  // Opens the volumes; throws VolumeRefused. Desktop and outputs outlive the session.
  Session(const Options& options, TerminalDesktop& desktop, Charset charset, Outputs& outputs);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Program& program() { return *program_; }
  TerminalPlatform& platform() { return platform_; }
  TerminalDesktop& desktop() { return desktop_; }
  // The volume under a drive letter; nothing when there is none.
  std::optional<VolumeDescription> Volume(char letter) const;

  // What the work has done besides moving, to be told by the result.
  std::vector<std::string> Remarks() const;

  // How small the volume at work can become as it is now; reads it. Nothing where there is nothing
  // to gain.
  std::optional<ShrinkAdvice> Shrink();

  // Restore points that stand in the way of giving free space back are given up, where the options
  // say so. To be asked before Close(). False: the user has been told.
  bool PrepareDiscard();
  // After Close(): gives the free space of the volume at work back. Nothing where that was not
  // asked for, or is refused, which the user is told. Throws nothing.
  std::optional<DiscardResult> Discard();

  // Makes the work durable and leaves the volumes as clean as they were found. False when that or
  // the debug log failed; the user has been told.
  bool Close();

 private:
  std::optional<std::size_t> VolumeAtWork() const;
  std::int64_t ClusterBytes() const;  // of it; 0 for none
  std::string ImageAtWork() const;    // its name; empty for none
  void OpenVolumes(const Options& options);
  void SetUpDebugLog(const Options& options, Outputs& outputs);

  TerminalDesktop& desktop_;
  std::vector<VolumeArgument> arguments_;  // of the volumes, in the same order
  std::vector<std::unique_ptr<MountedVolume>> volumes_;
  std::vector<std::vector<std::string>> objections_;         // of each volume
  std::vector<std::shared_ptr<const ImageSource>> sources_;  // of each volume, for Discard()
  std::vector<VolumePlace> places_;                          // of each volume
  bool dry_run_;
  bool discard_;
  TerminalPlatform platform_;
  DebugLogFile debug_log_;
  std::string debug_log_name_;
  std::unique_ptr<Program> program_;
};

}  // namespace vornalux
