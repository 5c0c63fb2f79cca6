// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>

#include "forms/controls.h"
#include "health/temperatures.h"
#include "volume/debug_trace.h"

namespace vornalux {

// The run that waits behind the warning.
class WatchedRun {
 public:
  virtual ~WatchedRun() = default;
  // Reads no temperature until the next pass starts.
  virtual void StopWatching() = 0;
  // Ends the run at its next check.
  virtual void StopRun() = 0;
};

// "58 °C"; between is what stands between number and unit.
std::string TemperatureText(std::int16_t temperature, const char* between);

// The window that holds a run up while the disk is too hot. It closes by itself when the disk has
// cooled down.
class HDDTempWarning final : public Form {
 public:
  // All outlive the window.
  HDDTempWarning(RawDevices& devices, const RunTarget& target, const DebugTrace& trace,
                 WatchedRun& run);

  Label LblDrive;
  Label LblHDDTemp{"\xC2\xB0\x43"};
  Label Label1{"Vornalux is waiting for the disk to cool off and will automatically continue."};
  Button Command3{"&Continue (not recommended)"};
  Button Command2{"&Stop defragmentation"};
  Button Command1{"&Disable temp probe (not recommended!)"};
  Timer tmrTemperatures{30000};

  // Makes the window ready to be shown, with this reading.
  void Load(std::int16_t temperature);

 private:
  void Temperatures_HDDTempOK();
  void Temperatures_HDDTempCritical(std::int16_t intTemp);
  void Command1_Click();
  void Command2_Click();
  void Command3_Click();
  void ShowTemperature(std::int16_t temperature);

  RawDevices& devices_;
  const RunTarget& target_;
  const DebugTrace& trace_;
  WatchedRun& run_;
  std::unique_ptr<clsTemperatures> temperatures_;  // kept until the next Load(): it may be at work
};

}  // namespace vornalux
