// SPDX-License-Identifier: GPL-2.0-or-later
// The machine stays awake during a run: a system bus with a login manager, played by the test,
// hears the real program.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "support/made_volume.h"
#include "support/setting.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

// One connection after another, each a bus of its own with the manager on it.
class LoginManager {
 public:
  explicit LoginManager(const std::string& path, std::string refused_mode = {})
      : refused_(std::move(refused_mode)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_, 4), 0);
    thread_ = std::thread([this] {
      for (;;) {
        const int peer = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer < 0) return;
        Serve(peer);
      }
    });
  }
  ~LoginManager() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
    if (lock_ >= 0) ::close(lock_);
  }

  // What was asked for, "what|who|why|mode" each.
  std::string asked;
  // Nobody holds the lock that was given.
  bool Released() const {
    pollfd end = {lock_, POLLIN, 0};
    return ::poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
  }
  bool Given() const { return given_; }

 private:
  void Serve(int peer) {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_fd(bus, peer, peer);
    sd_bus_set_server(bus, 1, {});
    sd_bus_set_anonymous(bus, 1);
    sd_bus_negotiate_fds(bus, 1);
    sd_bus_add_filter(bus, nullptr, Answer, this);
    if (sd_bus_start(bus) >= 0) {
      while (sd_bus_process(bus, nullptr) >= 0 && sd_bus_wait(bus, UINT64_MAX) >= 0) {
      }
    }
    sd_bus_close_unref(bus);
  }

  static int Answer(sd_bus_message* call, void* self, sd_bus_error*) {
    return static_cast<LoginManager*>(self)->Answer(call);
  }
  int Answer(sd_bus_message* call) {
    if (sd_bus_message_is_method_call(call, "org.freedesktop.DBus", "Hello") > 0) {
      return sd_bus_reply_method_return(call, "s", ":1.7");
    }
    if (sd_bus_message_is_method_call(call, "org.freedesktop.login1.Manager", "Inhibit") <= 0) {
      return 0;
    }
    const char *what = "", *who = "", *why = "", *mode = "";
    sd_bus_message_read(call, "ssss", &what, &who, &why, &mode);
    for (const char* word : {what, who, why, mode}) asked += std::string(word) + "|";
    if (mode == refused_ || refused_ == "all") {
      return sd_bus_reply_method_errorf(call, SD_BUS_ERROR_ACCESS_DENIED, "no");
    }
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) return -errno;
    lock_ = ends[0];
    given_ = true;
    const int sent = sd_bus_reply_method_return(call, "h", ends[1]);
    ::close(ends[1]);
    return sent;
  }

  std::string refused_;
  int listener_ = -1;
  std::atomic<int> lock_ = -1;  // the end of the pipe whose other end is the lock
  std::atomic<bool> given_ = false;
  std::thread thread_;
};

class SleepLockTest : public MadeVolume {
 protected:
  void SetUp() override { Make("fat16 size=16M files=250 fragmented=100% pieces=8 fill=95%"); }
  std::string Bus() const { return "unix:path=" + Path("bus"); }
};

TEST_F(SleepLockTest, IsAskedForDuringARunAndGivenBackOnEveryWayOut) {
  const std::string asks = "sleep:shutdown|Vornalux|Working on " + image_ + "|";
  for (const int number : {0, SIGTERM, SIGKILL}) {
    SCOPED_TRACE(number);
    std::filesystem::remove(Path("bus"));
    LoginManager manager(Path("bus"), number == SIGTERM ? "block" : "");
    const Setting address("DBUS_SYSTEM_BUS_ADDRESS", Bus());
    // On a slow disk, so that the run is still at work when it is looked at.
    const Setting slow("LD_PRELOAD", VORNALUX_KILL_LIBRARY);
    const Setting sanitized("ASAN_OPTIONS", "verify_asan_link_order=0");
    const Setting pause("VORNALUX_PAUSE", "500");
    Program program({"job", "--volume", "C=" + image_, "--", "/drv C: /d /dbg"});
    ASSERT_TRUE(program.ReadUntil("DFR:partial_mv"));
    EXPECT_TRUE(manager.Given() && !manager.Released());
    EXPECT_EQ(manager.asked, asks + "block|" + (number == SIGTERM ? asks + "delay|" : ""));
    if (number != 0) program.Signal(number);
    const ProgramEnd end = program.Wait();
    EXPECT_TRUE(number == SIGKILL ? end.signal == SIGKILL : end.code == (number == 0 ? 0 : 4));
    EXPECT_TRUE(manager.Released());
  }
  EXPECT_EQ(RunProgram({"analyze", image_}).code, 0);
  ExpectWhole();
}

// "shutdown" itself must find the way free, and holds nothing that it could keep.
TEST_F(SleepLockTest, IsGivenBackBeforeTheMachineIsSwitchedOff) {
  std::ofstream(Path("shutdown")) << "#!/bin/sh\nls -l /proc/self/fd > '" << Path("open") << "'\n";
  Run("chmod +x shutdown");
  LoginManager manager(Path("bus"));
  const Setting address("DBUS_SYSTEM_BUS_ADDRESS", Bus());
  const Setting path("PATH", Path("") + ":" + std::getenv("PATH"));
  EXPECT_EQ(RunProgram({"job", "--volume", "C=" + image_, "--", "/drv C: /d /down"}).code, 0);
  EXPECT_TRUE(manager.Given() && manager.Released());
  const Bytes open = Get("open");
  const std::string listed(open.begin(), open.end());
  // Standard output of the program is a pipe.
  EXPECT_EQ(listed.find("pipe:", listed.find("pipe:") + 1), std::string::npos) << listed;
}

TEST_F(SleepLockTest, NothingIsAskedByWhoOnlyLooksAndNothingLostWithoutABus) {
  LoginManager manager(Path("bus"), "all");
  const Setting address("DBUS_SYSTEM_BUS_ADDRESS", Bus());
  EXPECT_EQ(RunProgram({"analyze", image_}).code, 0);
  EXPECT_EQ(RunProgram({"defrag", image_, "--dry-run"}).code, 0);
  EXPECT_EQ(manager.asked, "");
  EXPECT_EQ(RunProgram({"defrag", image_}).code, 0) << "refused";
  EXPECT_NE(manager.asked, "");
  const Setting nowhere("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + Path("none"));
  const ProgramEnd end = RunProgram({"trim", image_, "--quiet"});
  EXPECT_EQ(end.code, 0);
  EXPECT_EQ(end.err, "");
  ExpectWhole();
}

}  // namespace
}  // namespace vornalux::test
