// SPDX-License-Identifier: GPL-2.0-or-later
#include "windows/flows/flow.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace vornalux::test {
namespace {

std::vector<FlowEntry>& Flows() {
  static std::vector<FlowEntry> flows;
  return flows;
}

HANDLE ready = nullptr;  // the program may run
Session* session_of_the_program = nullptr;

volatile bool has_ended = false;
unsigned end_code = 0;

std::string Setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

class PlayedFlow : public testing::Test {
 public:
  explicit PlayedFlow(const FlowEntry& flow) : flow_(flow) {}

  void TestBody() override {
    // For good: the program's calls come in until its process ends.
    auto* const session = new Session;
    session_of_the_program = session;
    flow_.body(*session);
  }

 private:
  const FlowEntry& flow_;
};

// A line for each flow, and what is wrong.
class BriefPrinter final : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed()) return;
    std::printf("%s:%d: %s\n", result.file_name() != nullptr ? result.file_name() : "",
                result.line_number(), result.message());
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    std::printf("%s %s\n", test.result()->Failed() ? "FAILED" : "passed", test.name());
  }
};

DWORD WINAPI Play(void* name) {
  const std::string filter = std::string("--gtest_filter=Flow.") + static_cast<const char*>(name);
  char program[] = "flows";
  std::string argument = filter;
  char* arguments[] = {program, argument.data(), nullptr};
  int count = 2;
  testing::InitGoogleTest(&count, arguments);
  for (const FlowEntry& flow : Flows()) {
    testing::RegisterTest("Flow", flow.name, nullptr, nullptr, __FILE__, __LINE__,
                          [&flow]() -> testing::Test* { return new PlayedFlow(flow); });
  }
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new BriefPrinter);
  const int failed = RUN_ALL_TESTS();
  std::fflush(stdout);
  TerminateProcess(GetCurrentProcess(), failed != 0 ? 1 : 0);
  return 0;
}

}  // namespace

FlowRegistration::FlowRegistration(FlowEntry entry) { Flows().push_back(entry); }

Session::Session() : machine(Setting("VORNALUX_FLOW_IMAGE")) {}

void Session::Start() { SetEvent(ready); }

bool Session::HasEnded() const { return has_ended; }

unsigned Session::End() {
  screen.Until("the program ends", [this] { return HasEnded(); });
  return end_code;
}

void Session::KeepImageOfD() {
  ASSERT_EQ(machine.D().Commit(), error::kSuccess);
  ASSERT_EQ(machine.D().Close(), error::kSuccess);
  const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
  std::FILE* file = std::fopen((Setting("VORNALUX_FLOW_RESULTS") + name + ".img").c_str(), "wb");
  ASSERT_NE(file, nullptr);
  const Bytes& image = machine.ImageOfD();
  EXPECT_EQ(std::fwrite(image.data(), 1, image.size(), file), image.size());
  EXPECT_EQ(std::fclose(file), 0);
}

ImaginaryMachine& MachineOfTheProgram() {
  WaitForSingleObject(ready, INFINITE);
  return session_of_the_program->machine;
}

Screen& ScreenOfTheProgram() {
  WaitForSingleObject(ready, INFINITE);
  return session_of_the_program->screen;
}

void EndOfTheProgram(unsigned code) {
  end_code = code;
  has_ended = true;
  ScreenOfTheProgram().Stir();
  // Its windows still answer.
  MSG message;
  for (;;) {
    MsgWaitForMultipleObjects(0, nullptr, FALSE, INFINITE, QS_SENDMESSAGE);
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
}

std::uint64_t SeedOfTheProgram() { return std::uint64_t{GetCurrentProcessId()} << 32; }

}  // namespace vornalux::test

using vornalux::test::Flows;

// For the starter, which reads them from a copy of the library that patches nothing.
extern "C" __declspec(dllexport) const vornalux::test::FlowEntry* FlowAt(unsigned index) {
  return index < Flows().size() ? &Flows()[index] : nullptr;
}

static bool PlaysOnRealDrives(const std::string& name) {
  for (const auto& flow : Flows()) {
    if (name == flow.name) return flow.place == vornalux::test::Place::OnRealDrives;
  }
  return false;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
  static char name[128];
  if (reason != DLL_PROCESS_ATTACH ||
      GetEnvironmentVariableA("VORNALUX_FLOW", name, sizeof name) == 0) {
    return TRUE;
  }
  vornalux::test::ready = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  if (!PlaysOnRealDrives(name)) vornalux::test::PatchDriveCalls();
  vornalux::test::PatchSessionCalls();
  CloseHandle(CreateThread(nullptr, 0, vornalux::test::Play, name, 0, nullptr));
  return TRUE;
}
