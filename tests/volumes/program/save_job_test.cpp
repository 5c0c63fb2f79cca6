// SPDX-License-Identifier: GPL-2.0-or-later
// Jobs saved on the desktop, judged by what others make of the file: the validator of desktop
// entries, and GLib, which starts it.
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>

#include "host/simulated/seeded_random.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/seed.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

namespace fs = std::filesystem;

class SaveJob : public ImageFolder {
 protected:
  SaveJob() {
    fs::create_directory(Path("home"));
    fs::create_directory(Path("bin"));
    setenv("HOME", Path("home").c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
    Run("mkfs.fat -C disk.img 1000");
    // A terminal that tells what it is to run, whichever name it is looked for by.
    for (const char* terminal : {"xdg-terminal-exec", "gnome-terminal", "xterm"}) {
      PutText(std::string("bin/") + terminal,
              "#!/bin/sh\ncase $1 in -e | --) shift ;; esac\n"
              "printf '%s\\0' \"$@\" >" +
                  Path("pipe") + "\n");
      chmod(Path(std::string("bin/") + terminal).c_str(), 0755);
    }
    Run("mkfifo pipe");
  }

  void PutText(const std::string& name, const std::string& text) {
    Put(name, Bytes(text.begin(), text.end()));
  }
  std::string Text(const std::string& name) {
    const Bytes content = Get(name);
    return {content.begin(), content.end()};
  }
  ProgramEnd Save(const std::string& name, const std::string& job,
                  const std::string& image = "disk.img", const Arguments& more = {}) {
    const Arguments save = {"job", "--volume", "C=" + Path(image), "--save-job", name};
    return RunProgram(And(And(save, more), {"--", job}));
  }
  // The command that opening the file runs.
  Arguments Started(const std::string& launcher) {
    setenv("LAUNCHER", launcher.c_str(), 1);
    Run("desktop-file-validate --no-hints \"$LAUNCHER\"");
    Run("export PATH=\"$PWD/bin:$PATH\"; gio launch \"$LAUNCHER\" & timeout 60 cat pipe >started; "
        "wait");
    Arguments command;
    std::istringstream text(Text("started"));
    for (std::string argument; std::getline(text, argument, '\0');) command.push_back(argument);
    return command;
  }
};

std::string RandomText(SeededRandom& random) {
  const std::vector<std::string> pieces = {" ", "'",   "\"", "\\", "$", "`", "%", "%f", "%%",  ";",
                                           "&", "|",   "<",  ">",  "~", "#", "*", "?",  "(",   "{",
                                           "=", "\\n", "é",  "漢", "a", "-", "!", "[",  "HOME"};
  std::string text = "x";
  for (auto left = random() % 12; left > 0; --left) text += pieces[random() % pieces.size()];
  return text;
}

TEST_F(SaveJob, AnyNamePathAndJobLineComesBack) {
  TestRandom random;
  const std::string program = fs::canonical(VORNALUX_PROGRAM);
  for (int round = 0; round < 40; ++round) {
    const std::string image = RandomText(random) + "x";
    const std::string name = RandomText(random) + "x";
    std::string folder = std::to_string(round) + RandomText(random) + "x";
    std::erase_if(folder, [](char c) {
      return std::string_view("\"\\<>|?*[~").find(c) != std::string_view::npos;
    });
    const std::string job = "/dir \"C:\\" + folder + "\" /d";
    setenv("IMAGE", Path(image).c_str(), 1);
    setenv("FOLDER", ("::/" + folder).c_str(), 1);
    Run("LC_ALL=C.UTF-8 mmd -i disk.img \"$FOLDER\" && cp disk.img \"$IMAGE\"");
    const ProgramEnd end = Save("  " + name + " ", job, image);
    ASSERT_EQ(end.code, 0) << end.err;
    const std::string file = Path("home/Desktop/" + name + ".desktop");
    ASSERT_EQ(end.out, file + "\n");
    ASSERT_EQ(Started(file),
              (Arguments{program, "job", "--volume", "C=" + Path(image), "--", job}));
  }
}

TEST_F(SaveJob, WhatIsSavedRuns) {
  // What ".." leads to behind a link is not where its name stands.
  Run("mkdir -p far/sub && ln -s far/sub link");
  MakeVolume("fat16 size=16M files=40 fragmented=60% seed=1", Path("far/disk.img"));
  const Bytes before = Get("far/disk.img");
  const ProgramEnd end = Save("job", "/drv C: /d /low", "./link/..//disk.img",
                              {"--exclude", "-a; *.b", "--idle", "--windows-dir", "", "--seed", "7",
                               "--vss-safe", "--quiet", "--drop-restore-points", "--json",
                               "--offset", "0", "--debug-log", Path("link/../log"), "--dry-run"});
  ASSERT_EQ(end.code, 0) << end.err;
  EXPECT_EQ(Get("far/disk.img"), before);
  const std::string file = Path("home/Desktop/job.desktop");
  const Arguments command = Started(file);
  EXPECT_EQ(command[3], "C=" + Path("link/../disk.img"));
  for (const char* option : {"--drop-restore-points", "--idle", "--exclude=*.-a; *.b"}) {
    EXPECT_EQ(std::count(command.begin(), command.end(), option), 1) << option;
  }
  const ProgramEnd run = RunProgram({command.begin() + 1, command.end()});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_NE(run.out.find("\"dry_run\": true"), std::string::npos) << run.out;
  EXPECT_NE(Text("far/log").find("CDM_line arguments: /drv C: /d /low"), std::string::npos);
  EXPECT_EQ(Get("far/disk.img"), before);

  // Another of the name takes its place, as a file that may be started.
  ASSERT_EQ(Save("job", "/drv C: /o").code, 0);
  EXPECT_EQ(Started(file).back(), "/drv C: /o");
  struct stat status = {};
  ASSERT_EQ(stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0755U);
}

TEST_F(SaveJob, LiesOnTheUsersDesktop) {
  const std::tuple<const char*, const char*> cases[] = {
      {"XDG_DESKTOP_DIR=\"$HOME/Bureau \\\"x\\\"/\"\n", "home/Bureau \"x\""},
      {"# XDG_DESKTOP_DIR=\"/no\"\n XDG_DESKTOP_DIR = \"/no\"\nXDG_DESKTOP_DIR=\"$HOME\"\n",
       "home"},
      {"XDG_DESKTOP_DIR=\"relative\"\nXDG_MUSIC_DIR=\"/no\"\n", "home/Desktop"},
      {"XDG_DESKTOP_DIR=", "home/Desktop"}};
  fs::create_directories(Path("home/.config"));
  fs::create_directories(Path("config"));
  for (const auto& [settings, folder] : cases) {
    PutText("home/.config/user-dirs.dirs", settings);
    EXPECT_EQ(Save("n", "/drv C:").out, Path(folder) + "/n.desktop\n") << settings;
    EXPECT_TRUE(fs::exists(Path(std::string(folder) + "/n.desktop"))) << settings;
  }
  PutText("config/user-dirs.dirs", "XDG_DESKTOP_DIR=\"" + Path("there") + "\"\n");
  setenv("XDG_CONFIG_HOME", Path("config").c_str(), 1);
  EXPECT_EQ(Save("n", "/drv C:").out, Path("there/n.desktop\n"));
  unsetenv("XDG_CONFIG_HOME");
}

TEST_F(SaveJob, RefusalsWriteNothing) {
  const fs::path desktop = Path("home/Desktop");
  const auto refuse = [&](const std::string& name, const std::string& job, int code,
                          const char* says, const std::string& image = "disk.img",
                          const std::string& exclude = "*.a") {
    const ProgramEnd end = Save(name, job, image, {"--exclude=" + exclude});
    EXPECT_EQ(end.code, code) << name << "|" << job << "\n" << end.err;
    EXPECT_NE(end.err.find(says), std::string::npos) << end.err;
    EXPECT_EQ(end.out, "");
    EXPECT_TRUE(!fs::exists(desktop) || fs::is_empty(desktop)) << name << "|" << job;
  };
  const std::string good = "/drv C: /d";
  for (const char* name : {"", "   "}) refuse(name, good, 2, "needs a name");
  for (const char* name : {"a/b", "../x"}) refuse(name, good, 2, "slash");
  for (const char* name : {"a\nb", "a\x7F", "\xFF"}) refuse(name, good, 2, "no name");
  refuse(std::string(300, 'n'), good, 1, "too long");
  refuse("n", "/drv C: /x", 2, "Invalid argument: /x");
  refuse("n", "/d", 2, "No drive specified.");
  refuse("n", "/dir C:\\x /d", 2, "No dir specified.");
  refuse("n", "/drv C: /o /t", 2, "Optimize has no thorough form");
  refuse("n", "/drv D: /d", 2, "D:");
  refuse("n", "/drv C /d", 2, "C\\, which no --volume names");
  refuse("n", "/setshell", 2, "Explorer verbs");
  refuse("n", "/dir \"C:\\none\" /d", 2, "there is no folder C:\\none on ");
  refuse("n", good, 1, "cannot be shown", "disk.img", "\x01");
  refuse("n", good, 3, "missing: No such file", "missing");
  // Room for a part of it.
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small{.rlim_cur = 2000, .rlim_max = limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  refuse("n", good, 1, "too large", "disk.img", std::string(3000, 'x'));
  setrlimit(RLIMIT_FSIZE, &limit);
  fs::remove_all(desktop);
  PutText("home/Desktop", "a file");
  EXPECT_EQ(Save("n", good).code, 1);
  setenv("HOME", "relative", 1);
  EXPECT_NE(Save("n", good).err.find("HOME names no folder"), std::string::npos);
}

}  // namespace
}  // namespace vornalux::test
