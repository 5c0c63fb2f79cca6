// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/recipe.h"

#include <array>
#include <charconv>
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <variant>

namespace vornalux {
namespace {

template <typename T>
using Member = T Recipe::*;

struct Size {
  Member<std::uint64_t> member;
};
struct SmallSize {
  Member<std::uint32_t> member;
};
struct Number {
  Member<std::int64_t> member;
};
struct SmallNumber {
  Member<int> member;
};
struct Share {
  Member<double> member;
};
struct Flag {
  Member<bool> member;
};
struct Seed {
  Member<std::uint64_t> member;
};

struct Field {
  enum class On { Both, Ntfs, Fat };

  std::string_view name;
  std::variant<Size, SmallSize, Number, SmallNumber, Share, Flag, Seed> kind;
  On on = On::Both;
};

const std::array kFields = {
    Field{"size", Size{&Recipe::size}},
    Field{"cluster", SmallSize{&Recipe::cluster}},
    Field{"sector", SmallSize{&Recipe::sector}},
    Field{"seed", Seed{&Recipe::seed}},
    Field{"files", Number{&Recipe::files}},
    Field{"folders", Number{&Recipe::folders}},
    Field{"crowd", Number{&Recipe::crowd}},
    Field{"fill", Share{&Recipe::fill}},
    Field{"big", Number{&Recipe::big}},
    Field{"fragmented", Share{&Recipe::fragmented}},
    Field{"fragmented-folders", Share{&Recipe::fragmented_folders}},
    Field{"pieces", SmallNumber{&Recipe::pieces}},
    Field{"windows", Flag{&Recipe::windows}},
    Field{"odd-names", Share{&Recipe::odd_names}},
    Field{"streams", Share{&Recipe::streams}, Field::On::Ntfs},
    Field{"sparse", Share{&Recipe::sparse}, Field::On::Ntfs},
    Field{"compressed", Share{&Recipe::compressed}, Field::On::Ntfs},
    Field{"links", Share{&Recipe::links}, Field::On::Ntfs},
    Field{"dos-names", Share{&Recipe::dos_names}, Field::On::Ntfs},
    Field{"mft-pieces", SmallNumber{&Recipe::mft_pieces}, Field::On::Ntfs},
    Field{"deleted", Share{&Recipe::deleted}, Field::On::Fat},
    Field{"bad", Number{&Recipe::bad}, Field::On::Fat},
    Field{"partitioned", Flag{&Recipe::partitioned}},
};

constexpr std::array<std::pair<std::string_view, VolumeKind>, 4> kKinds = {{
    {"ntfs", VolumeKind::Ntfs},
    {"fat12", VolumeKind::Fat12},
    {"fat16", VolumeKind::Fat16},
    {"fat32", VolumeKind::Fat32},
}};

[[noreturn]] void Fail(std::string_view word, const std::string& why) {
  throw std::invalid_argument("recipe: \"" + std::string(word) + "\": " + why);
}

template <typename T>
T ParseWhole(std::string_view word, std::string_view text) {
  T value{};
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    Fail(word, "a whole number is needed");
  }
  return value;
}

std::uint64_t ParseSize(std::string_view word, std::string_view text) {
  int shift = 0;
  if (!text.empty()) {
    const std::size_t unit =
        std::string_view("KMGT").find(static_cast<char>(text.back() & ~0x20));  // either case
    if (unit != std::string_view::npos) {
      shift = 10 * (static_cast<int>(unit) + 1);
      text.remove_suffix(1);
    }
  }
  const auto value = ParseWhole<std::uint64_t>(word, text);
  if (value > (std::uint64_t{1} << 50) >> shift) Fail(word, "too large");
  return value << shift;
}

double ParseShare(std::string_view word, std::string_view text) {
  const bool percent = !text.empty() && text.back() == '%';
  if (percent) text.remove_suffix(1);
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size()) {
    Fail(word, "a share such as 25% or 0.25 is needed");
  }
  if (percent) value /= 100;
  if (!(value >= 0 && value <= 1)) Fail(word, "must lie between 0% and 100%");
  return value;
}

struct Setter {
  Recipe& recipe;
  std::string_view word;
  std::string_view value;

  void operator()(Size f) const { recipe.*f.member = ParseSize(word, value); }
  void operator()(SmallSize f) const {
    const std::uint64_t size = ParseSize(word, value);
    if (size > (1U << 30)) Fail(word, "too large");
    recipe.*f.member = static_cast<std::uint32_t>(size);
  }
  void operator()(Number f) const { recipe.*f.member = ParseWhole<std::int64_t>(word, value); }
  void operator()(SmallNumber f) const { recipe.*f.member = ParseWhole<int>(word, value); }
  void operator()(Share f) const { recipe.*f.member = ParseShare(word, value); }
  void operator()(Seed f) const { recipe.*f.member = ParseWhole<std::uint64_t>(word, value); }
  void operator()(Flag f) const {
    if (value != "0" && value != "1") Fail(word, "must be 0 or 1");
    recipe.*f.member = value == "1";
  }
};

std::string SizeText(std::uint64_t size) {
  constexpr std::string_view kUnits = "KMGT";
  std::size_t unit = 0;
  while (size != 0 && size % 1024 == 0 && unit < kUnits.size()) {
    size /= 1024;
    ++unit;
  }
  return std::to_string(size) + (unit == 0 ? "" : std::string(1, kUnits[unit - 1]));
}

// The shortest decimal that reads back as the same share.
std::string ShareText(double share) {
  std::array<char, 64> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), share);
  return {buffer.data(), end.ptr};
}

struct Printer {
  const Recipe& recipe;
  const Recipe& standard;

  template <typename F, typename Text>
  std::string Unless(F field, Text text) const {
    return recipe.*field.member == standard.*field.member ? std::string()
                                                          : text(recipe.*field.member);
  }
  std::string operator()(Size f) const { return Unless(f, SizeText); }
  std::string operator()(SmallSize f) const { return Unless(f, SizeText); }
  std::string operator()(Number f) const {
    return Unless(f, [](std::int64_t v) { return std::to_string(v); });
  }
  std::string operator()(SmallNumber f) const {
    return Unless(f, [](int v) { return std::to_string(v); });
  }
  std::string operator()(Share f) const { return Unless(f, ShareText); }
  std::string operator()(Flag f) const {
    return Unless(f, [](bool v) { return std::string(v ? "1" : "0"); });
  }
  std::string operator()(Seed f) const { return std::to_string(recipe.*f.member); }
};

const Field* FindField(std::string_view name) {
  for (const Field& field : kFields) {
    if (field.name == name) return &field;
  }
  return nullptr;
}

void SetWord(Recipe& recipe, std::string_view word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string_view::npos) {
    for (const auto& [name, kind] : kKinds) {
      if (word == name) {
        recipe.kind = kind;
        return;
      }
    }
    Fail(word, "neither a file system (ntfs, fat12, fat16, fat32) nor name=value");
  }
  const std::string_view name = word.substr(0, equals);
  const std::string_view value = word.substr(equals + 1);
  if (name == "shredded") {
    const std::size_t colon = value.find(':');
    if (colon == std::string_view::npos) Fail(word, "files:extents is needed");
    recipe.shredded = ParseWhole<std::int64_t>(word, value.substr(0, colon));
    recipe.shredded_extents = ParseWhole<std::int64_t>(word, value.substr(colon + 1));
  } else if (name == "drive") {
    recipe.drive = value;
  } else if (const Field* field = FindField(name)) {
    std::visit(Setter{recipe, word, value}, field->kind);
  } else {
    Fail(word, "no such name");
  }
}

}  // namespace

Recipe Recipe::Parse(std::string_view text) {
  Recipe recipe;
  std::istringstream words{std::string(text)};
  for (std::string word; words >> word;) SetWord(recipe, word);
  recipe.Validate();
  return recipe;
}

std::string Recipe::Text() const {
  static const Recipe standard;
  std::string text;
  for (const auto& [name, value] : kKinds) {
    if (value == kind) text = name;
  }
  for (const Field& field : kFields) {
    const std::string value = std::visit(Printer{*this, standard}, field.kind);
    if (!value.empty()) text += " " + std::string(field.name) + "=" + value;
  }
  if (shredded > 0) {
    text += " shredded=" + std::to_string(shredded) + ":" + std::to_string(shredded_extents);
  }
  if (drive != standard.drive) text += " drive=" + drive;
  return text;
}

void Recipe::Validate() const {
  const auto need = [](bool good, std::string_view name, const char* why) {
    if (!good) Fail(name, why);
  };
  const auto power_of_two = [](std::uint64_t v) { return v != 0 && (v & (v - 1)) == 0; };
  need(size >= (64U << 10), "size", "a volume needs at least 64K");
  need(power_of_two(sector) && sector >= 512 && sector <= 4096, "sector",
       "must be 512, 1024, 2048 or 4096");
  need(cluster == 0 || (power_of_two(cluster) && cluster >= sector), "cluster",
       "must be a power of two, not below the sector size");
  need(!IsNtfs() || size >= (4U << 20), "size", "an NTFS volume needs at least 4M");
  need(cluster <= (IsNtfs() ? 64U << 10 : 128U * sector), "cluster", "too large");
  need(files >= 0 && folders >= 0 && big >= 0 && bad >= 0, "files", "must not be negative");
  need(files <= 10'000'000 && folders <= 1'000'000, "files", "too many");
  need(crowd >= 0 && crowd <= files, "crowd", "must not be more than files");
  need(fill <= 0.95, "fill", "at most 95%");
  need(pieces >= 2, "pieces", "at least 2");
  need(mft_pieces >= 1 && mft_pieces <= 1000, "mft-pieces", "must be 1 to 1000");
  need(shredded >= 0 && shredded_extents >= 0 && shredded_extents <= 1'000'000, "shredded",
       "must not be negative or above 1000000 extents");
  need(drive.size() == 1 && drive[0] >= 'A' && drive[0] <= 'Z', "drive", "must be a letter");
  need(compressed == 0 || cluster <= 4096, "compressed", "needs clusters of at most 4096 bytes");
  static const Recipe standard;
  for (const Field& field : kFields) {
    if (field.on == Field::On::Both || (field.on == Field::On::Ntfs) == IsNtfs()) continue;
    if (!std::visit(Printer{*this, standard}, field.kind).empty()) {
      Fail(field.name, IsNtfs() ? "only on FAT" : "only on NTFS");
    }
  }
}

}  // namespace vornalux
