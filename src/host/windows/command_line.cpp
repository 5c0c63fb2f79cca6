// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/command_line.h"

#include <algorithm>

#include "host/windows/system_headers.h"

namespace vornalux {
namespace {

bool SamePath(const std::wstring& a, const std::wstring& b) {
  return lstrcmpiW(a.c_str(), b.c_str()) == 0;
}

// Where the program's path ends.
std::size_t EndOfPath(const std::wstring& line, const std::wstring& program) {
  if (line.starts_with(L'"')) {
    const std::size_t quote = line.find(L'"', 1);
    return quote == std::wstring::npos ? line.size() : quote + 1;
  }
  const std::wstring without_extension = program.substr(0, program.rfind(L'.'));
  for (const std::wstring& path : {program, without_extension}) {
    const bool ends =
        line.size() <= path.size() || line.find_first_of(L" \t", path.size()) == path.size();
    if (!path.empty() && ends && SamePath(line.substr(0, path.size()), path)) return path.size();
  }
  return std::min(line.find_first_of(L" \t"), line.size());
}

}  // namespace

std::wstring CommandLineTail(const std::wstring& line, const std::wstring& program) {
  const std::wstring tail = line.substr(EndOfPath(line, program));
  return tail.substr(std::min(tail.find_first_not_of(L" \t"), tail.size()));
}

}  // namespace vornalux
