// SPDX-License-Identifier: GPL-2.0-or-later
#include "play/import_patch.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "host/windows/system_headers.h"

namespace vornalux::play {
namespace {

template <typename Record>
Record* At(std::uintptr_t base, std::uintptr_t offset) {
  return reinterpret_cast<Record*>(base + offset);
}

// Where this program keeps the function's address.
void** SlotOf(const char* function) {
  const auto base = reinterpret_cast<std::uintptr_t>(GetModuleHandleA(nullptr));
  const auto* dos = At<IMAGE_DOS_HEADER>(base, 0);
  const auto* header = At<IMAGE_NT_HEADERS>(base, static_cast<std::uintptr_t>(dos->e_lfanew));
  const IMAGE_DATA_DIRECTORY& imports =
      header->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* library = At<IMAGE_IMPORT_DESCRIPTOR>(base, imports.VirtualAddress);
       library->Name != 0; ++library) {
    const auto* name = At<IMAGE_THUNK_DATA>(base, library->OriginalFirstThunk);
    auto* slot = At<void*>(base, library->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* entry =
          At<IMAGE_IMPORT_BY_NAME>(base, static_cast<std::uintptr_t>(name->u1.AddressOfData));
      if (std::strcmp(reinterpret_cast<const char*>(entry->Name), function) == 0) return slot;
    }
  }
  return nullptr;
}

void Write(void** slot, void* value) {
  DWORD before = 0;
  VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &before);
  *slot = value;
  VirtualProtect(slot, sizeof *slot, before, &before);
}

}  // namespace

ImportPatch::ImportPatch(const char* function, void* replacement) : slot_(SlotOf(function)) {
  if (slot_ == nullptr) throw std::runtime_error(std::string("not imported: ") + function);
  original_ = *slot_;
  Write(slot_, replacement);
}

ImportPatch::~ImportPatch() { Write(slot_, original_); }

}  // namespace vornalux::play
