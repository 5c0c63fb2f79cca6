// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace vornalux::play {

// For its lifetime, calls of one imported function go to another of the same type: what no system
// at hand answers can be answered, and what would end the session can be caught.
class ImportPatch {
 public:
  // Throws std::runtime_error when this program does not import the function.
  ImportPatch(const char* function, void* replacement);
  template <typename Function>
  ImportPatch(const char* function, Function* replacement)
      : ImportPatch(function, reinterpret_cast<void*>(replacement)) {}
  ~ImportPatch();
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;

 private:
  void** slot_ = nullptr;
  void* original_ = nullptr;
};

// The same for good.
template <typename Function>
void Patch(const char* function, Function* replacement) {
  new ImportPatch(function, replacement);
}

}  // namespace vornalux::play
