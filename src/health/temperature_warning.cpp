// SPDX-License-Identifier: GPL-2.0-or-later
#include "health/temperature_warning.h"

namespace vornalux {

std::string TemperatureText(std::int16_t temperature, const char* between) {
  return std::to_string(temperature) + between + "\xC2\xB0\x43";
}

HDDTempWarning::HDDTempWarning(RawDevices& devices, const RunTarget& target,
                               const DebugTrace& trace, WatchedRun& run)
    : Form("Waiting for disk to cool down ..."),
      devices_(devices),
      target_(target),
      trace_(trace),
      run_(run) {
  Command1.tool_tip = "This will disable the disk temperature monitor.";
  Command1.click = [this] { Command1_Click(); };
  Command2.click = [this] { Command2_Click(); };
  Command3.click = [this] { Command3_Click(); };
  tmrTemperatures.tick = [this] {
    if (temperatures_) temperatures_->QueryHDDTemperature();
  };
}

void HDDTempWarning::Load(std::int16_t temperature) {
  temperatures_ = std::make_unique<clsTemperatures>(devices_, target_);
  // A reading that fails changes nothing: the window waits for the next one.
  temperatures_->HDDTempOK = [this](std::int16_t) { Temperatures_HDDTempOK(); };
  temperatures_->HDDTempCritical = [this](std::int16_t intTemp) {
    Temperatures_HDDTempCritical(intTemp);
  };
  LblDrive.caption = "Drive " + target_.Drive();
  ShowTemperature(temperature);
}

void HDDTempWarning::ShowTemperature(std::int16_t temperature) {
  LblHDDTemp.caption = TemperatureText(temperature, "");
}

void HDDTempWarning::Temperatures_HDDTempOK() {
  tmrTemperatures.enabled = false;
  Unload();
}

void HDDTempWarning::Temperatures_HDDTempCritical(std::int16_t intTemp) {
  ShowTemperature(intTemp);
  trace_.Line("HD Temp HIGH: " + std::to_string(intTemp));
}

void HDDTempWarning::Command1_Click() {
  run_.StopWatching();
  tmrTemperatures.enabled = false;
  Unload();
}

void HDDTempWarning::Command2_Click() {
  run_.StopWatching();
  tmrTemperatures.enabled = false;
  run_.StopRun();
  // Drawing the map has let events through.
  tmrTemperatures.enabled = false;
  Unload();
}

void HDDTempWarning::Command3_Click() {
  tmrTemperatures.enabled = false;
  Unload();
}

}  // namespace vornalux
