// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_tree_reader.h"

#include <algorithm>
#include <span>

#include "host/image/device/in_memory.h"
#include "host/image/device/little_endian.h"
#include "host/image/fat/fat_names.h"
#include "host/image/volume/refused.h"
#include "platform/types.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kLargestRead = std::uint64_t{1} << 20;
constexpr std::uint32_t kMostEntries = 0xF0000000;
constexpr std::uint8_t kKnownAttributes = attribute::kReadOnly | attribute::kHidden |
                                          attribute::kSystem | attribute::kDirectory |
                                          attribute::kArchive;

// Names from a stranger's volume go to a terminal.
std::string Printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }, '?');
  return text;
}

std::string Cluster(std::uint32_t number) { return "cluster " + std::to_string(number); }

}  // namespace

FatTreeReader::FatTreeReader(BlockDevice& device, const FatGeometry& geometry,
                             const FatTable& table, FatTree& tree)
    : device_(device),
      geometry_(geometry),
      table_(table),
      tree_(tree),
      taken_(geometry.EndCluster()) {}

void FatTreeReader::Read() {
  AddRoot();
  // The folders found on the way are at the end of the same list.
  for (std::uint32_t node = 0; node < tree_.Size(); ++node) {
    if (tree_.IsFolder(node)) ReadFolder(node);
  }
}

void FatTreeReader::AddRoot() {
  FatNode root;
  root.first_cluster = geometry_.root_cluster;
  root.attributes = attribute::kDirectory;
  tree_.nodes_.push_back(root);
  if (geometry_.type == FatType::Fat32) Take(FatTree::kRoot);
}

void FatTreeReader::ReadFolder(std::uint32_t folder) {
  const std::uint32_t first_child = tree_.Size();
  std::uint32_t index = 0;
  long_name_.Drop();
  end_seen_ = false;
  for (const Piece& piece : PiecesOf(folder)) {
    if (index > kMostEntries) Damaged(folder, "the folder is too long");
    buffer_.resize(InMemory(piece.length));
    if (const std::error_code error = device_.Read(piece.offset, buffer_)) {
      throw VolumeRefused("The folder " + Printable(tree_.Path(folder)) +
                          " cannot be read at byte " + std::to_string(piece.offset) + ": " +
                          error.message());
    }
    for (std::size_t at = 0; at < buffer_.size(); at += fat_entry::kSize) {
      ReadEntry(folder, index++, RawEntry(&buffer_[at], fat_entry::kSize));
    }
  }
  tree_[folder].first_child = first_child;
  tree_[folder].children = tree_.Size() - first_child;
}

std::vector<FatTreeReader::Piece> FatTreeReader::PiecesOf(std::uint32_t folder) const {
  std::uint32_t cluster = tree_[folder].first_cluster;
  if (cluster == 0) {
    return {{geometry_.root_offset, std::uint64_t{geometry_.root_entries} * fat_entry::kSize}};
  }
  std::vector<Piece> pieces;
  for (; !table_.IsEnd(cluster); cluster = table_.Get(cluster)) {
    const std::uint64_t offset = geometry_.ClusterOffset(cluster);
    if (!pieces.empty() && pieces.back().offset + pieces.back().length == offset &&
        pieces.back().length < kLargestRead) {
      pieces.back().length += geometry_.cluster_size;
    } else {
      pieces.push_back({offset, geometry_.cluster_size});
    }
  }
  return pieces;
}

void FatTreeReader::ReadEntry(std::uint32_t folder, std::uint32_t index, RawEntry entry) {
  if (folder != FatTree::kRoot && index < 2) {
    CheckDots(folder, index, entry);
  } else if (end_seen_) {
    if (entry[0] != fat_entry::kEnd && entry[0] != fat_entry::kDeleted) {
      tree_[folder].used_behind_end = true;
    }
  } else if (entry[0] == fat_entry::kEnd) {
    end_seen_ = true;
  } else if (entry[0] == fat_entry::kDeleted) {
    long_name_.Drop();
  } else if (IsLongNamePiece(entry)) {
    long_name_.Add(entry);
  } else if ((entry[fat_entry::kAttributes] & attribute::kVolumeLabel) != 0) {
    long_name_.Drop();
    if (folder == FatTree::kRoot && tree_.label_.empty()) {
      tree_.label_ = ToWtf8(LabelName(entry));
    }
  } else {
    AddChild(folder, index, entry);
  }
}

void FatTreeReader::CheckDots(std::uint32_t folder, std::uint32_t index, RawEntry entry) const {
  const bool own = index == 0;
  const std::string name = own ? "\".\"" : "\"..\"";
  if (!IsDotEntry(entry, own ? 1 : 2) || IsLongNamePiece(entry) ||
      (entry[fat_entry::kAttributes] & attribute::kDirectory) == 0) {
    Damaged(folder, "its entry " + name + " is missing");
  }
  const std::uint32_t parent = tree_[folder].parent;
  const std::uint32_t right = tree_[own ? folder : parent].first_cluster;
  const std::uint32_t found = ClusterIn(entry);
  if (found == right || (!own && parent == FatTree::kRoot && found == 0)) return;
  Damaged(folder, "its entry " + name + " leads to " + Cluster(found) + " instead of " +
                      Cluster(!own && parent == FatTree::kRoot ? 0 : right));
}

std::uint32_t FatTreeReader::ClusterIn(RawEntry entry) const {
  const std::uint32_t low = LoadLittle<std::uint16_t>(entry, fat_entry::kClusterLow);
  if (geometry_.type != FatType::Fat32) return low;
  return low | std::uint32_t{LoadLittle<std::uint16_t>(entry, fat_entry::kClusterHigh)} << 16;
}

void FatTreeReader::AddChild(std::uint32_t folder, std::uint32_t index, RawEntry entry) {
  if (IsDotEntry(entry, 1) || IsDotEntry(entry, 2)) {
    Damaged(folder, "it has a \".\" or \"..\" as its entry " + std::to_string(index));
  }
  const std::string name = ToWtf8(long_name_.Take(entry).value_or(ShortName(entry)));
  if (name.empty()) Damaged(folder, "its entry " + std::to_string(index) + " has no name");
  FatNode child;
  child.name_at = tree_.names_.size() & 0xFFFFFFFFFFFF;
  child.name_length = name.size() & 0xFFFF;
  child.parent = folder;
  child.entry = index;
  child.attributes = entry[fat_entry::kAttributes] & kKnownAttributes;
  child.first_cluster = ClusterIn(entry);
  child.size = LoadLittle<std::uint32_t>(entry, fat_entry::kFileSize);
  tree_.names_ += name;
  tree_.nodes_.push_back(child);
  CheckClusters(tree_.Size() - 1);
}

void FatTreeReader::CheckClusters(std::uint32_t node) {
  const std::uint32_t first = tree_[node].first_cluster;
  const std::uint64_t needed = tree_.IsFolder(node) ? 1 : tree_[node].size;
  const std::uint64_t length = first == 0 ? 0 : Take(node);
  if (length * geometry_.cluster_size >= needed) return;
  if (tree_.IsFolder(node)) Damaged(node, "the folder has no clusters");
  Damaged(node, "its " + std::to_string(needed) + " bytes do not fit into its " +
                    std::to_string(length) + " clusters");
}

std::uint32_t FatTreeReader::Take(std::uint32_t node) {
  std::uint32_t cluster = tree_[node].first_cluster;
  if (!geometry_.IsCluster(cluster)) {
    Damaged(node, "it starts at " + Cluster(cluster) + ", outside the volume");
  }
  for (std::uint32_t length = 0;; ++length) {
    if (taken_[cluster]) TakenTwice(node, cluster, length);
    taken_[cluster] = true;
    const std::uint32_t next = table_.Get(cluster);
    if (table_.IsEnd(next)) return length + 1;
    if (next == 0) Damaged(node, "its chain runs into " + Cluster(cluster) + ", which is free");
    if (next == table_.Bad()) {
      Damaged(node, "its chain runs into " + Cluster(cluster) + ", which is marked bad");
    }
    if (!geometry_.IsCluster(next)) {
      Damaged(node, Cluster(cluster) + " of its chain leads to " + Cluster(next) +
                        ", outside the volume");
    }
    cluster = next;
  }
}

bool FatTreeReader::ChainHolds(std::uint32_t node, std::uint32_t cluster,
                               std::uint64_t length) const {
  std::uint32_t at = tree_[node].first_cluster;
  for (; length != 0 && geometry_.IsCluster(at); --length, at = table_.Get(at)) {
    if (at == cluster) return true;
  }
  return false;
}

void FatTreeReader::TakenTwice(std::uint32_t node, std::uint32_t cluster, std::uint32_t length) {
  if (ChainHolds(node, cluster, length)) {
    Damaged(node, "its chain is endless: it comes back to " + Cluster(cluster));
  }
  std::uint32_t owner = 0;
  while (owner < node && !ChainHolds(owner, cluster, geometry_.clusters)) ++owner;
  const std::string path = Printable(tree_.Path(owner));
  if (length == 0 && IsAbove(owner, node)) {
    Damaged(node, "it leads back to the folder " + path + " above it");
  }
  Damaged(node, Cluster(cluster) + " also belongs to " + path);
}

bool FatTreeReader::IsAbove(std::uint32_t folder, std::uint32_t node) const {
  while (node != FatTree::kRoot && node != folder) node = tree_[node].parent;
  return node == folder;
}

void FatTreeReader::Damaged(std::uint32_t node, const std::string& what) const {
  throw VolumeRefused("The volume is damaged at " + Printable(tree_.Path(node)) + ": " + what +
                      ". It was left untouched. Look with fsck.fat -n IMAGE, mend with fsck.fat -a "
                      "IMAGE.");
}

}  // namespace vornalux
