// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/program/program_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace vornalux::test {
namespace {

constexpr int kPipeBytes = 4096;

// line: the program first.
pid_t SpawnLine(Arguments line, int out, int err) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  std::vector<char*> pointers;
  for (std::string& argument : line) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t process = -1;
  const int error =
      posix_spawn(&process, pointers.front(), &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot run " + line.front());
  return process;
}

pid_t Spawn(Arguments arguments, int out, int err) {
  arguments.insert(arguments.begin(), VORNALUX_PROGRAM);
  return SpawnLine(std::move(arguments), out, err);
}

std::string ReadFromStart(int file) {
  std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  const ssize_t count = pread(file, text.data(), text.size(), 0);
  text.resize(static_cast<std::size_t>(count < 0 ? 0 : count));
  return text;
}

ProgramEnd WaitFor(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  ProgramEnd end;
  if (WIFEXITED(status)) end.code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  return end;
}

}  // namespace

Program::Program(const Arguments& arguments) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  fcntl(ends[1], F_SETPIPE_SZ, kPipeBytes);
  out_ = ends[0];
  err_file_ = memfd_create("stderr", MFD_CLOEXEC);
  process_ = Spawn(arguments, ends[1], err_file_);
  close(ends[1]);
}

Program::~Program() {
  if (process_ != -1) {
    kill(process_, SIGKILL);
    WaitFor(process_);
  }
  close(out_);
  close(err_file_);
}

bool Program::ReadMore() {
  char buffer[256];
  const ssize_t count = read(out_, buffer, sizeof buffer);
  if (count <= 0) return false;
  text_.append(buffer, static_cast<std::size_t>(count));
  return true;
}

bool Program::ReadUntil(const std::string& text) {
  for (;;) {
    for (std::size_t end = text_.find('\n', searched_); end != std::string::npos;
         end = text_.find('\n', searched_)) {
      const std::string line = text_.substr(searched_, end - searched_);
      searched_ = end + 1;
      if (line.find(text) != std::string::npos) return true;
    }
    if (!ReadMore()) return false;
  }
}

bool Program::WaitUntilHalted() {
  siginfo_t info{};
  while (waitid(P_PID, static_cast<id_t>(process_), &info, WSTOPPED | WEXITED | WNOWAIT) != 0) {
    if (errno != EINTR) return false;
  }
  return info.si_code == CLD_STOPPED;
}

void Program::Signal(int number) const { kill(process_, number); }

void Program::StopReading() {
  close(out_);
  out_ = -1;
}

ProgramEnd Program::Wait() {
  while (ReadMore()) {
  }
  ProgramEnd end = WaitFor(process_);
  process_ = -1;
  end.out = text_;
  end.err = ReadFromStart(err_file_);
  return end;
}

ProgramEnd RunProgram(const Arguments& arguments) { return Program(arguments).Wait(); }

ProgramEnd RunProgramBehind(const std::string& redirections, const Arguments& arguments) {
  const Arguments shell = {"/bin/sh", "-c", "exec \"$0\" \"$@\" " + redirections, VORNALUX_PROGRAM};
  const int out = memfd_create("stdout", MFD_CLOEXEC);
  const int err = memfd_create("stderr", MFD_CLOEXEC);
  ProgramEnd end = WaitFor(SpawnLine(And(shell, arguments), out, err));
  end.out = ReadFromStart(out);
  end.err = ReadFromStart(err);
  close(out);
  close(err);
  return end;
}

}  // namespace vornalux::test
