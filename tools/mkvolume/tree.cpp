// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/tree.h"

#include <algorithm>
#include <cmath>

#include "check/bytes.h"
#include "mkvolume/key.h"
#include "mkvolume/names.h"

namespace vornalux::making {
namespace {

constexpr std::uint64_t kFatFileLimit = 0xFFFFFFFF;
constexpr std::uint64_t kResidentSize = 600;  // about what fits into a file record
constexpr std::int64_t kRootFiles = 20;       // FAT12 and FAT16 have few entries there

class TreePlanner {
 public:
  TreePlanner(const Recipe& recipe, std::uint32_t cluster)
      : recipe_(recipe), cluster_(cluster), random_(KeyOf(recipe.seed, "tree")) {}

  Tree Plan();

 private:
  std::size_t AddFolder(std::size_t parent, std::u16string name);
  std::size_t AddFile(std::size_t parent, std::u16string name, std::uint64_t size);
  PlannedStream MakeStream(std::size_t item, std::u16string name, std::uint64_t size) const;
  void AddFolders();
  void AddFiles();
  void AddExtras(std::size_t file);
  void AddNamedStreams(std::size_t file);
  void AddBigFiles();
  void AddShreddedFiles();
  void AddWindows();
  void AddLayoutList(std::size_t prefetch);
  std::u16string FileName(std::uint64_t number);
  std::size_t PickFolder();
  std::uint64_t DrawSize();

  const Recipe& recipe_;
  std::uint32_t cluster_;
  SeededRandom random_;
  Tree tree_;
  std::vector<std::size_t> folders_ = {0};
  std::vector<int> depth_ = {0};
  std::int64_t root_files_ = 0;
  std::uint64_t next_number_ = 0;
};

Tree TreePlanner::Plan() {
  tree_.items.push_back({u"", 0, true, {}, {}, false});
  AddFolders();
  AddFiles();
  AddBigFiles();
  AddShreddedFiles();
  if (recipe_.windows) AddWindows();
  return std::move(tree_);
}

std::size_t TreePlanner::AddFolder(std::size_t parent, std::u16string name) {
  tree_.items.push_back({std::move(name), parent, true, {}, {}, false});
  return tree_.items.size() - 1;
}

PlannedStream TreePlanner::MakeStream(std::size_t item, std::u16string name,
                                      std::uint64_t size) const {
  PlannedStream stream;
  stream.payload.key = KeyOf(recipe_.seed, tree_.PathOf(item) + ":" + checking::ToUtf8(name));
  stream.payload.size = recipe_.IsNtfs() ? size : std::min(size, kFatFileLimit);
  stream.fixed_size = size <= kResidentSize;
  stream.name = std::move(name);
  return stream;
}

std::size_t TreePlanner::AddFile(std::size_t parent, std::u16string name, std::uint64_t size) {
  tree_.items.push_back({std::move(name), parent, false, {}, {}, false});
  const std::size_t item = tree_.items.size() - 1;
  tree_.items[item].streams.push_back(MakeStream(item, u"", size));
  return item;
}

std::u16string TreePlanner::FileName(std::uint64_t number) {
  return random_.Chance(recipe_.odd_names) ? OddName(number, recipe_.IsNtfs(), random_)
                                           : PlainFileName(number, random_);
}

void TreePlanner::AddFolders() {
  constexpr int kDepth = 7;
  for (std::int64_t i = 0; i < recipe_.folders; ++i) {
    std::size_t parent = random_.Below(folders_.size());
    if (depth_[parent] >= kDepth || (random_.Chance(0.1) && folders_.size() < 30)) parent = 0;
    const std::uint64_t number = next_number_++;
    std::u16string name = random_.Chance(recipe_.odd_names / 2) ? OddName(number, false, random_)
                                                                : FolderName(number, random_);
    folders_.push_back(AddFolder(folders_[parent], std::move(name)));
    depth_.push_back(depth_[parent] + 1);
  }
}

// Favours some folders, so that a few get large; the root gets few.
std::size_t TreePlanner::PickFolder() {
  const double skewed = random_.Unit();
  auto index = static_cast<std::size_t>(skewed * skewed * static_cast<double>(folders_.size()));
  if (index == 0 && folders_.size() > 1 && ++root_files_ > kRootFiles) {
    index = 1 + random_.Below(folders_.size() - 1);
  }
  return folders_[std::min(index, folders_.size() - 1)];
}

// Many small, some large, as on a disk in use.
std::uint64_t TreePlanner::DrawSize() {
  const double kind = random_.Unit();
  const auto logarithmic = [this](double low, double high) {
    return static_cast<std::uint64_t>(low * std::pow(high / low, random_.Unit()));
  };
  if (kind < 0.03) return 0;
  if (kind < 0.20) return logarithmic(1, static_cast<double>(kResidentSize));
  if (kind < 0.80) return logarithmic(700, 32e3);
  if (kind < 0.97) return logarithmic(32e3, 500e3);
  return logarithmic(500e3, 6e6);
}

void TreePlanner::AddFiles() {
  std::size_t crowd_folder = 0;
  if (recipe_.crowd > 0) crowd_folder = AddFolder(0, u"Crowd");
  for (std::int64_t i = 0; i < recipe_.files; ++i) {
    const bool crowded = i < recipe_.crowd;
    const std::size_t parent = crowded ? crowd_folder : PickFolder();
    // Shuffled numbers: entries do not arrive in the order in which a folder sorts them.
    const std::uint64_t number = next_number_++;
    AddExtras(AddFile(parent, FileName(number * 7919 % 10'000'019), DrawSize()));
  }
}

void TreePlanner::AddExtras(std::size_t file) {
  if (!recipe_.IsNtfs()) return;
  PlannedStream& main = tree_.items[file].streams[0];
  if (random_.Chance(recipe_.compressed)) {
    main.compressed = true;
    main.payload.kind = Payload::Kind::Prose;
    main.payload.size = std::max<std::uint64_t>(main.payload.size, 5000);
    main.fixed_size = true;
  } else if (random_.Chance(recipe_.sparse)) {
    main.sparse = true;
    main.payload.size = std::max<std::uint64_t>(main.payload.size, 12U * cluster_ + 5);
    main.fixed_size = false;
  }
  if (random_.Chance(recipe_.streams)) AddNamedStreams(file);
  if (random_.Chance(recipe_.links)) {
    const std::uint64_t number = next_number_++;
    tree_.items[file].links.push_back({folders_[random_.Below(folders_.size())],
                                       u"link " + FileName(number * 7919 % 10'000'019)});
  }
  tree_.items[file].dos_name = tree_.items[file].links.empty() && random_.Chance(recipe_.dos_names);
}

void TreePlanner::AddNamedStreams(std::size_t file) {
  static const std::u16string kNames[] = {u"Zone.Identifier", u"strøm", u"s"};
  const auto count = static_cast<std::size_t>(random_.Between(1, 3));
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t size = random_.Chance(0.5) ? random_.Below(200U) : DrawSize();
    tree_.items[file].streams.push_back(MakeStream(file, kNames[i], size));
  }
}

void TreePlanner::AddBigFiles() {
  for (std::int64_t i = 0; i < recipe_.big; ++i) {
    const std::uint64_t percent = recipe_.size / 100;
    const std::uint64_t size = 2 * percent + random_.Below(3 * percent);
    const std::size_t file = AddFile(folders_[random_.Below(folders_.size())],
                                     Wide("big " + std::to_string(i) + ".iso"), size);
    tree_.items[file].streams[0].fixed_size = true;
  }
}

void TreePlanner::AddShreddedFiles() {
  for (std::int64_t i = 0; i < recipe_.shredded; ++i) {
    const std::int64_t clusters =
        recipe_.shredded_extents + static_cast<std::int64_t>(random_.Below(
                                       static_cast<std::uint64_t>(recipe_.shredded_extents)));
    const std::size_t file = AddFile(folders_[random_.Below(folders_.size())],
                                     Wide("shredded " + std::to_string(i) + ".bin"),
                                     static_cast<std::uint64_t>(clusters) * cluster_);
    tree_.items[file].streams[0].fixed_size = true;
    tree_.items[file].streams[0].exact_extents = recipe_.shredded_extents;
  }
}

void TreePlanner::AddWindows() {
  const std::size_t windows = AddFolder(0, u"Windows");
  const std::size_t prefetch = AddFolder(windows, u"Prefetch");
  const std::size_t system = AddFolder(windows, u"System32");
  const std::size_t drivers = AddFolder(system, u"drivers");
  for (int i = 0; i < 30; ++i) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string hash;
    for (int digit = 0; digit < 8; ++digit) hash += kHex[random_.Below(16)];
    AddFile(prefetch, Wide("PROGRAM" + std::to_string(i) + ".EXE-" + hash + ".pf"),
            5000 + random_.Below(60'000U));
    AddFile(i % 3 == 0 ? drivers : system,
            Wide("module" + std::to_string(i) + (i % 3 == 0 ? ".sys" : ".dll")),
            3000 + random_.Below(300'000U));
  }
  AddLayoutList(prefetch);
}

// The list names files in the order in which they are read at start-up, as 8-bit text.
void TreePlanner::AddLayoutList(std::size_t prefetch) {
  std::vector<std::string> paths;
  for (std::size_t i = 1; i < tree_.items.size(); ++i) {
    std::string path = tree_.PathOf(i);
    const bool ascii = std::all_of(path.begin(), path.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    const bool of_windows = path.starts_with("/Windows/System32/");
    if (!ascii || tree_.items[i].is_folder || (!of_windows && !random_.Chance(0.02))) continue;
    std::replace(path.begin(), path.end(), '/', '\\');
    paths.push_back(recipe_.drive + ":" + path);
  }
  random_.Shuffle(paths);
  std::string text = "[OptimalLayoutFile]\r\nVersion=1\r\n";
  for (const std::string& path : paths) text += path + "\r\n";
  const std::size_t file = AddFile(prefetch, u"layout.ini", text.size());
  PlannedStream& main = tree_.items[file].streams[0];
  main.fixed_size = true;
  main.payload.kind = Payload::Kind::Literal;
  main.payload.literal = std::move(text);
}

}  // namespace

Tree PlanTree(const Recipe& recipe, std::uint32_t cluster) {
  return TreePlanner(recipe, cluster).Plan();
}

std::string Tree::PathOf(std::size_t item) const {
  return item == 0 ? "/" : PathOf(items[item].parent, items[item].name);
}

std::string Tree::PathOf(std::size_t parent, const std::u16string& name) const {
  std::string path = "/" + checking::ToUtf8(name);
  for (; parent != 0; parent = items[parent].parent) {
    path.insert(0, "/" + checking::ToUtf8(items[parent].name));
  }
  return path;
}

std::vector<std::vector<std::size_t>> Tree::Children() const {
  std::vector<std::vector<std::size_t>> children(items.size());
  for (std::size_t i = 1; i < items.size(); ++i) children[items[i].parent].push_back(i);
  return children;
}

void AddToManifest(const Tree& tree, std::size_t item, const PlannedStream& stream,
                   const std::string& sha256, Manifest& manifest) {
  const PlannedItem& planned = tree.items[item];
  const std::string suffix = stream.name.empty() ? "" : ":" + checking::ToUtf8(stream.name);
  const Manifest::Entry entry{sha256, stream.payload.size};
  manifest.entries[tree.PathOf(item) + suffix] = entry;
  for (const PlannedItem::Link& link : planned.links) {
    manifest.entries[tree.PathOf(link.parent, link.name) + suffix] = entry;
  }
}

}  // namespace vornalux::making
