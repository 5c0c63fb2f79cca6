// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "health/temperature_warning.h"
#include "host/windows/ui/native_form.h"

namespace vornalux {

// The temperature warning on the screen. Each time that it is unloaded it only goes out of sight.
class NativeTemperatureWarning final : public NativeForm {
 public:
  explicit NativeTemperatureWarning(HDDTempWarning& warning);
  ~NativeTemperatureWarning() override;

 private:
  void OnUnload() override {}
  // Waiting goes on until a button says otherwise.
  void OnCloseBox() override {}

  HFONT large_;
};

}  // namespace vornalux
