// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_index.h"

#include <algorithm>

#include "check/ntfs_stream.h"

namespace vornalux::checking {
namespace {

constexpr std::uint32_t kIndexMagic = 0x58444E49;  // "INDX"
constexpr std::uint16_t kHasChild = 1;
constexpr std::uint16_t kLast = 2;
constexpr int kDepthLimit = 16;  // each level has many entries: no volume needs more
constexpr std::size_t kRootHeader = 16;
constexpr std::size_t kBlockHeader = 24;

class IndexWalk {
 public:
  IndexWalk(const RawNtfsVolume& volume, const NtfsFile& file, const std::u16string& name,
            const NtfsUpcase& upcase, Problems& problems)
      : volume_(volume), file_(file), name_(name), upcase_(upcase), problems_(problems) {}

  std::vector<NtfsIndexEntry> Run();

 private:
  template <typename... Parts>
  void Fault(const Parts&... parts) {
    problems_.Add("record ", file_.number, ", index ", ToUtf8(name_), ": ", parts...);
  }
  bool ReadRoot(const NtfsStream& root);
  // node starts with the index header; where names it.
  void Node(Bytes node, const std::string& where, int depth);
  void Block(std::uint64_t vcn, int depth);
  void Entry(Bytes entry, const std::string& where);
  void CheckBlockUse();

  const RawNtfsVolume& volume_;
  const NtfsFile& file_;
  const std::u16string& name_;
  const NtfsUpcase& upcase_;
  Problems& problems_;

  const NtfsStream* blocks_ = nullptr;
  std::uint32_t block_size_ = 0;
  bool of_names_ = false;
  std::vector<bool> visited_;
  std::vector<NtfsIndexEntry> entries_;
};

std::vector<NtfsIndexEntry> IndexWalk::Run() {
  const NtfsStream* root = file_.Find(ntfs::kIndexRoot, name_);
  if (root == nullptr || !root->resident) {
    Fault("no root");
    return {};
  }
  if (!ReadRoot(*root)) return {};
  blocks_ = file_.Find(ntfs::kIndexAllocation, name_);
  if (blocks_ != nullptr) {
    const auto allocated =
        static_cast<std::uint64_t>(volume_.geometry.clusters) * volume_.geometry.cluster;
    if (blocks_->resident || blocks_->size > allocated) {
      Fault("impossible allocation");
      return {};
    }
    visited_.resize(static_cast<std::size_t>(blocks_->size / block_size_));
  }
  Node(root->value.subspan(kRootHeader), "root", 0);
  CheckBlockUse();
  return std::move(entries_);
}

bool IndexWalk::ReadRoot(const NtfsStream& root) {
  of_names_ = Load32(root.value, 0) == ntfs::kFileName;
  block_size_ = Load32(root.value, 8);
  if (root.value.size() < kRootHeader + 16 || !IsPowerOfTwo(block_size_) || block_size_ < 512 ||
      block_size_ > 65536) {
    Fault("impossible root: blocks of ", block_size_, " bytes");
    return false;
  }
  if (of_names_ != (name_ == u"$I30") || (of_names_ && Load32(root.value, 4) != 1)) {
    Fault("indexes type ", Load32(root.value, 0), " by rule ", Load32(root.value, 4));
    return false;
  }
  return true;
}

void IndexWalk::Node(Bytes node, const std::string& where, int depth) {
  const std::uint32_t first = Load32(node, 0);
  const std::uint32_t used = Load32(node, 4);
  const std::uint32_t allocated = Load32(node, 8);
  const bool inner = (Load8(node, 12) & 1) != 0;
  if (first < 16 || first % 8 != 0 || used > allocated || allocated > node.size() ||
      first >= used) {
    Fault(where, ": impossible header");
    return;
  }
  for (std::size_t at = first; Inside(at, 16, used);) {
    const std::uint16_t length = Load16(node, at + 8);
    const std::uint16_t flags = Load16(node, at + 12);
    const bool child = (flags & kHasChild) != 0;
    if (length < (child ? 24 : 16) || length % 8 != 0 || !Inside(at, length, used)) {
      Fault(where, ": entry at ", at, " has impossible length ", length);
      return;
    }
    if (child != inner) Fault(where, ": entry at ", at, inner ? " lacks" : " has", " a child");
    if (child) Block(Load64(node, at + length - 8), depth + 1);
    if ((flags & kLast) != 0) {
      if (at + length != used) Fault(where, ": used ", used, ", but ends at ", at + length);
      return;
    }
    if (of_names_) Entry(node.subspan(at, length), where);
    at += length;
  }
  Fault(where, ": no last entry");
}

void IndexWalk::Block(std::uint64_t vcn, int depth) {
  const std::uint64_t unit =
      volume_.geometry.cluster <= block_size_ ? volume_.geometry.cluster : 512;
  const std::uint64_t number =
      vcn < visited_.size() * (block_size_ / unit) ? vcn * unit / block_size_ : visited_.size();
  if (number >= visited_.size() || vcn * unit % block_size_ != 0) {
    Fault("child at VCN ", vcn, ", which is no block");
    return;
  }
  if (depth > kDepthLimit || visited_[number]) {
    Fault("block ", number, " is reached twice");
    return;
  }
  visited_[number] = true;
  std::vector<std::uint8_t> block(block_size_);
  if (!ReadStream(volume_, blocks_->extents, number * block_size_, block)) {
    Fault("block ", number, " cannot be read");
    return;
  }
  const std::string fault =
      Load32(block, 0) == kIndexMagic ? UndoFixups(block) : std::string("no index block");
  if (!fault.empty()) {
    Fault("block ", number, ": ", fault);
    return;
  }
  if (Load64(block, 16) != vcn) Fault("block ", number, " says VCN ", Load64(block, 16));
  Node(Bytes(block).subspan(kBlockHeader), "block " + std::to_string(number), depth);
}

void IndexWalk::Entry(Bytes entry, const std::string& where) {
  const std::size_t key = Load16(entry, 10);
  const std::size_t length = std::size_t{2} * Load8(entry, 16 + 64);
  if (!Inside(16, key, entry.size()) || key < 66 + length || length == 0) {
    Fault(where, ": an entry's name cannot be read");
    return;
  }
  NtfsIndexEntry found;
  found.reference = Load64(entry, 0);
  found.name = {Load64(entry, 16), Load8(entry, 16 + 65),
                LoadUtf16(entry.subspan(16 + 66, length))};
  if (!entries_.empty() && upcase_.Compare(entries_.back().name.name, found.name.name) >= 0) {
    Fault(where, ": \"", ToUtf8(found.name.name), "\" comes after \"",
          ToUtf8(entries_.back().name.name), "\"");
  }
  entries_.push_back(std::move(found));
}

void IndexWalk::CheckBlockUse() {
  if (visited_.empty()) return;
  const NtfsStream* bitmap = file_.Find(ntfs::kBitmap, name_);
  const auto bits =
      bitmap == nullptr ? std::nullopt : ReadWhole(volume_, *bitmap, visited_.size() + 4096);
  if (!bits || bits->size() * 8 < visited_.size()) {
    Fault("its bitmap is missing, too short or unreadable");
    return;
  }
  for (std::size_t number = 0; number < bits->size() * 8; ++number) {
    const bool marked = ((*bits)[number / 8] >> (number % 8) & 1) != 0;
    const bool used = number < visited_.size() && visited_[number];
    if (marked == used) continue;
    Fault("block ", number, used ? " is in use but marked free" : " is marked but not in use");
  }
}

}  // namespace

NtfsUpcase::NtfsUpcase(const RawNtfsVolume& volume, const NtfsFiles& files, Problems& problems)
    : table_(0x10000) {
  for (std::size_t i = 0; i < table_.size(); ++i) table_[i] = static_cast<char16_t>(i);
  const NtfsFile* file = files.Find(ntfs::kUpcaseRecord);
  const NtfsStream* data = file == nullptr ? nullptr : file->Find(ntfs::kData);
  const auto bytes = data == nullptr ? std::nullopt : ReadWhole(volume, *data, 2 * table_.size());
  if (!bytes || bytes->size() != 2 * table_.size()) {
    problems.Add("$UpCase: missing, unreadable or of a wrong size");
    return;
  }
  for (std::size_t i = 0; i < table_.size(); ++i) {
    table_[i] = static_cast<char16_t>(Load16(*bytes, 2 * i));
  }
}

int NtfsUpcase::Compare(const std::u16string& a, const std::u16string& b) const {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const int difference = int{table_[a[i]]} - int{table_[b[i]]};
    if (difference != 0) return difference;
  }
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return a.compare(b);
}

std::vector<NtfsIndexEntry> WalkNtfsIndex(const RawNtfsVolume& volume, const NtfsFile& file,
                                          const std::u16string& name, const NtfsUpcase& upcase,
                                          Problems& problems) {
  return IndexWalk(volume, file, name, upcase, problems).Run();
}

}  // namespace vornalux::checking
