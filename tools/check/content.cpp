// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/content.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <new>
#include <stdexcept>

namespace vornalux {
namespace {

std::string Escape(const std::string& path) {
  std::string out;
  for (const char c : path) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string Unescape(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    const char c = text[++i];
    out += c == 't' ? '\t' : c == 'n' ? '\n' : c == 'r' ? '\r' : c;
  }
  return out;
}

bool IsHash(const std::string& text) {
  return text == "-" ||
         (text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos);
}

std::string KeyOf(const CheckedItem& item) {
  if (!item.stream.empty()) return item.path + ":" + item.stream;
  return item.is_folder ? item.path + "/" : item.path;
}

EVP_MD_CTX* Context(void* context) { return static_cast<EVP_MD_CTX*>(context); }

}  // namespace

void Manifest::Write(std::ostream& out) const {
  for (const std::string& line : header) out << "# " << line << '\n';
  for (const auto& [path, entry] : entries) {
    out << entry.sha256 << '\t' << entry.size << '\t' << Escape(path) << '\n';
  }
}

Manifest Manifest::Read(std::istream& in) {
  Manifest manifest;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty()) continue;
    if (line[0] == '#') {
      manifest.header.push_back(line.substr(std::min<std::size_t>(2, line.size())));
      continue;
    }
    const std::size_t first = line.find('\t');
    const std::size_t second = first == std::string::npos ? first : line.find('\t', first + 1);
    Entry entry;
    bool good = second != std::string::npos && second + 1 < line.size();
    if (good) {
      entry.sha256 = line.substr(0, first);
      const char* end = line.data() + second;
      const auto parsed = std::from_chars(line.data() + first + 1, end, entry.size);
      good = parsed.ec == std::errc() && parsed.ptr == end && IsHash(entry.sha256);
    }
    if (!good) {
      throw std::runtime_error("manifest line " + std::to_string(number) +
                               ": expected \"sha256<tab>size<tab>path\"");
    }
    if (!manifest.entries.emplace(Unescape(line.substr(second + 1)), entry).second) {
      throw std::runtime_error("manifest line " + std::to_string(number) + ": path given twice");
    }
  }
  return manifest;
}

void Manifest::Save(const std::string& path) const {
  std::ofstream out(path, std::ios::binary);
  Write(out);
  out.close();
  if (!out) throw std::runtime_error("cannot write manifest " + path);
}

Manifest Manifest::Load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open manifest " + path);
  try {
    Manifest manifest = Read(in);
    if (in.bad()) throw std::runtime_error("read error");
    return manifest;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path + ": " + error.what());
  }
}

Manifest ManifestOf(const std::vector<CheckedItem>& items) {
  Manifest manifest;
  for (const CheckedItem& item : items) {
    Manifest::Entry entry{item.sha256, item.size};
    if (item.is_folder && item.stream.empty()) entry = {"-", 0};
    manifest.entries.emplace(KeyOf(item), entry);
  }
  return manifest;
}

std::vector<std::string> CompareContent(const std::vector<CheckedItem>& items,
                                        const Manifest& manifest) {
  return CompareContent(ManifestOf(items), manifest);
}

std::vector<std::string> CompareContent(const Manifest& actual, const Manifest& expected) {
  std::vector<std::string> differences;
  for (const auto& [path, wanted] : expected.entries) {
    const auto found = actual.entries.find(path);
    if (found == actual.entries.end()) {
      differences.push_back("missing: " + path);
    } else if (found->second.size != wanted.size) {
      differences.push_back("size differs: " + path + ": " + std::to_string(found->second.size) +
                            " instead of " + std::to_string(wanted.size));
    } else if (found->second.sha256 != wanted.sha256) {
      differences.push_back("content differs: " + path);
    }
  }
  for (const auto& [path, entry] : actual.entries) {
    if (!expected.entries.contains(path)) differences.push_back("unexpected: " + path);
  }
  return differences;
}

ContentHash::ContentHash() : context_(EVP_MD_CTX_new()) {
  if (context_ == nullptr || EVP_DigestInit_ex(Context(context_), EVP_sha256(), nullptr) != 1) {
    throw std::bad_alloc();
  }
}

ContentHash::~ContentHash() { EVP_MD_CTX_free(Context(context_)); }

void ContentHash::Add(std::span<const std::uint8_t> bytes) {
  EVP_DigestUpdate(Context(context_), bytes.data(), bytes.size());
}

void ContentHash::AddZeros(std::uint64_t count) {
  static const std::vector<std::uint8_t> zeros(std::size_t{1} << 16);
  while (count > 0) {
    const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(count, zeros.size()));
    Add({zeros.data(), part});
    count -= part;
  }
}

std::string ContentHash::Finish() {
  std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_DigestFinal_ex(Context(context_), digest.data(), &size);
  EVP_DigestInit_ex(Context(context_), EVP_sha256(), nullptr);
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[digest[i] >> 4];
    text += kDigits[digest[i] & 15];
  }
  return text;
}

}  // namespace vornalux
