// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/system_headers.h"

// After the headers that it needs.
#include <shellapi.h>

#include <cstdlib>
#include <utility>

#include "app/program.h"
#include "app/start_up.h"
#include "host/windows/command_line.h"
#include "host/windows/ui/checking_window.h"
#include "host/windows/ui/context_window.h"
#include "host/windows/ui/launcher_window.h"
#include "host/windows/ui/log_windows.h"
#include "host/windows/ui/main_window.h"
#include "host/windows/ui/resource.h"
#include "host/windows/ui/temperature_window.h"
#include "host/windows/ui/windows_desktop.h"
#include "host/windows/windows_check_library.h"
#include "host/windows/windows_devices.h"
#include "host/windows/windows_files.h"
#include "host/windows/windows_machine.h"
#include "host/windows/windows_registry.h"
#include "host/windows/windows_shell_objects.h"
#include "host/windows/windows_system.h"
#include "host/windows/windows_text.h"
#include "host/windows/windows_volumes.h"

namespace vornalux {
namespace {

std::string Tail(ShellObjects& shell) {
  const ProgramFile program = shell.ProgramPlace();
  return FromWide(
      CommandLineTail(GetCommandLineW(), ToWide(program.folder + "\\" + program.name + ".exe")));
}

void OpenPage(const std::string& address) {
  ShellExecuteW(nullptr, L"open", ToWide(address).c_str(), nullptr, nullptr, SW_SHOWNORMAL);
}

int Run() {
  // A drive without its disk is an answer; nobody is to be asked for the disk.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  WindowsVolumes volumes;
  WindowsFiles files;
  WindowsSystem system;
  WindowsMachine machine;
  WindowsCheckLibrary checks;
  WindowsDevices devices;
  WindowsDesktop desktop;
  WindowsShellObjects shell;
  WindowsRegistry registry;
  Program program({volumes, files, machine, devices, desktop, shell, registry, system, checks});
  program.launcher.open_page = OpenPage;
  // A job that asks for it ends the program from inside its run.
  program.launcher.end_program = [&desktop] {
    desktop.RemoveTrayIcon();
    ExitProcess(EXIT_SUCCESS);
  };
  NativeLauncher launcher(program.launcher, program.main_window);
  NativeMainWindow main_window(program.main_window);
  NativeDetails details(program.main_window.details);
  NativeDebug debug(program.debug_window);
  NativeTemperatureWarning warning(program.main_window.temperature_warning);
  NativeContext context(program.launcher.context_menu);
  const NativeChecking checking(program.launcher.checking);
  launcher.SharePlaceWith(main_window);
  desktop.SetTrayOwner(launcher.window());
  desktop.tray_icon_tried = [&main_window](bool shown) { main_window.StandInForIcon(shown); };
  main_window.progressed = [&](int percent) {
    desktop.SetTrayTip(program.main_window.caption.get() + " - " + std::to_string(percent) + "%");
  };
  main_window.ended = [&](const std::string& result) {
    desktop.SetTrayTip(program.main_window.caption);
    desktop.TellAtTrayIcon(program.main_window.caption, result);
  };
  launcher.taskbar_created = [&desktop] { desktop.RestoreTrayIcon(); };
  // Once is enough, however many windows are told.
  NativeForm::open_help = [&program] { Raise(program.launcher.lblInfo.click); };
  NativeForm::close_program = [&, closing = false](CloseReason reason) mutable {
    if (std::exchange(closing, true)) return;
    desktop.HurryBoxes();
    program.main_window.QueryUnload(reason);
  };
  const auto unloaded = program.main_window.unloaded;
  program.main_window.unloaded = [unloaded] {
    Raise(unloaded);
    PostQuitMessage(EXIT_SUCCESS);
  };
  const std::string tail = Tail(shell);
  if (StartUp(program, tail) != StartUpResult::Started) return EXIT_FAILURE;
  if (!desktop.Ended()) desktop.Run();
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace vornalux

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) { return vornalux::Run(); }
