// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/ntfs/ntfs_image.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "check/content.h"
#include "check/ntfs_check.h"
#include "check/ntfs_stream.h"
#include "host/image/ntfs/ntfs_volume.h"
#include "host/image/ntfs/open_ntfs.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "volumes/maker/maker_editor.h"

namespace vornalux::test {
namespace {

constexpr std::uint32_t kStandard = 0x10, kData = 0x80;

void MarkFile(NtfsEditor& editor, std::uint64_t id, std::uint32_t attribute) {
  editor.Attribute(id, kStandard, [&](ByteSpan a) {
    const std::size_t attributes = Get(a, 20, 2) + 32;
    Put(a, attributes, 4, Get(a, attributes, 4) | attribute);
  });
}

// The attribute grows by eight bytes that a sparse one has.
void MarkSparse(NtfsEditor& editor, std::uint64_t id) {
  editor.Record(id, [](ByteSpan record) {
    const std::size_t at = NtfsEditor::FindAttribute(record, kData, 0);
    const std::size_t used = Get(record, 24, 4);
    std::copy_backward(&record[at + 64], &record[used], &record[used + 8]);
    Put(record, 24, 4, used + 8);
    const ByteSpan data = record.subspan(at);
    Put(data, 4, 4, Get(data, 4, 4) + 8);
    Put(data, 12, 2, 0x8000);
    Put(data, 32, 2, 72);
    Put(data, 64, 8, Get(data, 40, 8));
  });
  MarkFile(editor, id, attribute::kSparse);
}

}  // namespace

Bytes MakeNtfs(const std::string& recipe,
               const std::vector<std::pair<std::string, std::size_t>>& files) {
  const ScratchFolder folder;
  MakeVolume(recipe, folder.Path("v.img"));
  for (const auto& [name, size] : files) {
    Random random(size);
    Bytes content(size);
    std::generate(content.begin(), content.end(), std::ref(random));
    folder.Put("in", content);
    const std::size_t colon = name.find(':');
    const std::string stream = colon == std::string::npos ? "" : "-N " + name.substr(colon + 1);
    folder.Run("ntfscp -q -f " + stream + " v.img in " + name.substr(0, colon));
  }
  return folder.Get("v.img");
}

Bytes MakeStrange(std::size_t cluster_size, const std::string& words, std::uint64_t seed,
                  std::vector<std::pair<std::string, std::size_t>> files) {
  files.emplace_back("unwritten", 20 * cluster_size);
  for (int i = 0; i < 60; ++i)
    files.emplace_back("unwritten:many" + std::to_string(i), cluster_size + 1);
  files.emplace_back("marked", 9 * cluster_size);
  Bytes image = MakeNtfs(
      "ntfs " + words + " cluster=" + std::to_string(cluster_size) +
          " seed=" + std::to_string(seed) +
          " fill=50% fragmented=50% fragmented-folders=50% pieces=8 mft-pieces=2 streams=20%"
          " sparse=10% links=10% dos-names=20% odd-names=20%",
      files);
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(std::move(image), report);
  MarkSparse(editor, report.Find("/marked")->id);
  const std::uint64_t unwritten = report.Find("/unwritten")->id;
  MarkFile(editor, unwritten, attribute::kCompressed);
  editor.Attribute(unwritten, kData, [](ByteSpan a) { Put(a, 56, 8, 0); });
  return std::move(editor.bytes);
}

std::vector<KnownStream> AllStreams(MountedVolume& volume) {
  std::vector<KnownStream> found = contract::Walk(volume, true);
  if (const auto mft = volume.HiddenItem(volume.Root(), "$mft")) {
    for (const std::string stream : {"", "::$BITMAP"}) {
      found.push_back({.path = "$MFT" + stream, .ref = {mft->id, stream}, .extents = {}});
    }
  }
  return found;
}

StreamRef FindStream(MountedVolume& volume, const std::string& path_end) {
  for (const KnownStream& each : AllStreams(volume)) {
    if (each.path.ends_with(path_end)) return each.ref;
  }
  throw std::runtime_error("no stream " + path_end);
}

#ifdef __SANITIZE_ADDRESS__
MayLeak::MayLeak() { __lsan_disable(); }
MayLeak::~MayLeak() { __lsan_enable(); }
#else
MayLeak::MayLeak() = default;
MayLeak::~MayLeak() = default;
#endif

std::int64_t FreeRun(const MountedVolume& volume, std::int64_t lcn, std::int64_t count) {
  return contract::FindFree(contract::WholeBitmap(volume), volume.Facts().total_clusters, count,
                            lcn);
}

MemoryVolume::MemoryVolume(Bytes content, bool dry)
    : device_(std::move(content)), failing_(device_, FailingDevice::kReads) {
  VolumeStore store;
  store.device = std::make_unique<BorrowedDevice>(failing_);
  store.journal_home = std::make_unique<MemoryJournalHome>(journal_);
  store.only_looking = dry;
  const MayLeak may_leak;
  volume_ = OpenNtfsVolume(std::move(store));
}

ErrorCode MemoryVolume::Finish(Bytes& image) {
  const ErrorCode code = volume_->Close();
  volume_.reset();
  image = std::move(device_.Content());
  return code;
}

std::set<std::string> Snapshot(const Bytes& image) {
  std::set<std::string> lines;
  const MemorySource source(image);
  std::vector<std::string> faults;
  checking::Problems problems(faults, 10);
  const auto geometry = checking::ReadNtfsBoot(source, 0, problems);
  if (!geometry) return lines;
  const checking::RawNtfsVolume volume{&source, 0, *geometry};
  checking::NtfsHasher hasher(volume, problems);
  const checking::NtfsFiles files(volume, problems);
  for (const checking::NtfsFile& file : files.All()) {
    using namespace checking::ntfs;
    if (file.number != kRootRecord && file.number < kFirstUser) continue;
    for (const checking::NtfsStream& stream : file.streams) {
      if (stream.type == checking::ntfs::kAttributeList) continue;
      std::string line = checking::NameStream(file.number, stream.type, stream.name) + ", flags " +
                         std::to_string(stream.flags);
      if (stream.type == checking::ntfs::kData) {
        line += ", " + std::to_string(stream.initialized) + " initialized, " +
                hasher.Hash(file.number, stream);
      } else {
        ContentHash hash;
        hash.Add(stream.value);
        line += ", " + hash.Finish();
      }
      lines.insert(line);
    }
  }
  return lines;
}

std::string Complaint(const Bytes& image, const std::set<std::string>& expected) {
  std::string text = CheckNtfs(MemorySource(image)).ProblemText();
  const std::set<std::string> found = Snapshot(image);
  for (const std::string& line : expected) {
    if (!found.contains(line)) text += "gone: " + line + "\n";
  }
  for (const std::string& line : found) {
    if (!expected.contains(line)) text += "new: " + line + "\n";
  }
  return text;
}

}  // namespace vornalux::test
