// SPDX-License-Identifier: GPL-2.0-or-later
// The library that is loaded into the program: plays the flow that the environment names, as a
// test.
#include "windows/flows/flow.h"

#include <cstdio>
#include <string>
#include <vector>

#include "host/windows/system_headers.h"
#include "host/windows/ui/resource.h"

namespace vornalux::play {
namespace {

class PlayedFlow : public testing::Test {
 public:
  explicit PlayedFlow(const FlowEntry& flow) : flow_(flow) {}

  void TestBody() override {
    // For good: the program's calls come in until its process ends.
    flow_.body(*new Session);
  }

 private:
  const FlowEntry& flow_;
};

DWORD WINAPI Play(void* name) {
  const std::string filter = std::string("--gtest_filter=Flow.") + static_cast<const char*>(name);
  char program[] = "flows";
  std::string argument = filter;
  // Where it caught exceptions, GoogleTest would set the process's error mode, which is the
  // program's.
  char uncaught[] = "--gtest_catch_exceptions=0";
  char* arguments[] = {program, argument.data(), uncaught, nullptr};
  int count = 3;
  testing::InitGoogleTest(&count, arguments);
  for (const FlowEntry& flow : Flows()) {
    testing::RegisterTest("Flow", flow.name, nullptr, nullptr, __FILE__, __LINE__,
                          [&flow]() -> testing::Test* { return new PlayedFlow(flow); });
  }
  const int failed = RUN_ALL_TESTS();
  std::fflush(stdout);
  TerminateProcess(GetCurrentProcess(), failed != 0 ? 1 : 0);
  return 0;
}

bool HasRealDrives(const std::string& name) {
  for (const FlowEntry& flow : Flows()) {
    if (name == flow.name) return flow.place == Place::OnRealDrives;
  }
  return false;
}

}  // namespace

const Screen& StartToTheLauncher(Session& session) {
  session.Start();
  session.screen.UntilShown("the launcher", &Screen::Launcher);
  return session.screen;
}

void OpenOptions(const Screen& screen) {
  const HWND launcher = screen.Launcher();
  screen.Press(launcher, IDC_MORE);
  screen.Until("the options", [&] { return Screen::Text(launcher, IDC_MORE) == "More <<"; });
}

const Screen& SelectDrive(Session& session, int index) {
  const Screen& screen = StartToTheLauncher(session);
  screen.Choose(screen.Launcher(), IDC_VOLUMES, index);
  screen.Press(screen.Launcher(), IDC_SELECT);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
  return screen;
}

void KeepImageOfD(Session& session) {
  ASSERT_EQ(session.machine.D().Close(), error::kSuccess);
  const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
  std::FILE* file = std::fopen((Setting("VORNALUX_FLOW_RESULTS") + name + ".img").c_str(), "wb");
  ASSERT_NE(file, nullptr);
  const std::vector<std::uint8_t> image = session.machine.ImageOfD();
  EXPECT_EQ(std::fwrite(image.data(), 1, image.size(), file), image.size());
  EXPECT_EQ(std::fclose(file), 0);
}

}  // namespace vornalux::play

using namespace vornalux::play;

// For the starter, which reads them from a copy of the library that patches nothing.
extern "C" __declspec(dllexport) const FlowEntry* FlowAt(unsigned index) {
  return index < Flows().size() ? &Flows()[index] : nullptr;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
  static char name[128];
  if (reason != DLL_PROCESS_ATTACH ||
      GetEnvironmentVariableA("VORNALUX_FLOW", name, sizeof name) == 0) {
    return TRUE;
  }
  TakeCallsOver(!HasRealDrives(name));
  CloseHandle(CreateThread(nullptr, 0, Play, name, 0, nullptr));
  return TRUE;
}
