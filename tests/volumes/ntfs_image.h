// SPDX-License-Identifier: GPL-2.0-or-later
// NTFS images for tests: made by mkntfs, filled through libntfs-3g, without mounting.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/image/ntfs/ntfs_library.h"
#include "host/image/ntfs/ntfs_runs.h"
#include "host/mounted/mounted_volume.h"
#include "support/devices.h"

namespace vornalux::test {

// A file that goes away at the end.
class ImageFile {
 public:
  explicit ImageFile(const std::string& name);
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;
  ~ImageFile();

  const std::string& Path() const { return path_; }
  Bytes Content() const;
  void SetContent(const Bytes& content) const;
  // Overwrites or reads a few bytes.
  void Poke(std::uint64_t offset, const Bytes& bytes) const;
  Bytes Peek(std::uint64_t offset, std::size_t length) const;

 private:
  std::string path_;
};

// An empty volume.
void MakeNtfs(const ImageFile& image, std::uint64_t size, int cluster_size);

// One with some of everything that the volume maker knows, and a few things that only careless
// software leaves: sparse marks without holes, clusters never written in a file marked compressed.
void MakeFilled(const ImageFile& image, std::uint64_t size, int cluster_size, int files,
                std::uint64_t seed);

// A volume mounted by the library alone. Every function throws when the library refuses.
class LibraryVolume {
 public:
  enum class Mode { ReadOnly, ReadWrite };
  LibraryVolume(const ImageFile& image, Mode mode);
  LibraryVolume(const LibraryVolume&) = delete;
  LibraryVolume& operator=(const LibraryVolume&) = delete;
  ~LibraryVolume();

  ntfs_volume* Volume() const { return volume_; }

  // File references; the root's is 5.
  std::uint64_t AddFolder(std::uint64_t parent, std::u16string_view name);
  std::uint64_t AddFile(std::uint64_t parent, std::u16string_view name, const Bytes& content = {});
  // Each cluster in a place of its own, from lcn on.
  std::uint64_t AddShattered(std::uint64_t parent, std::u16string_view name, const Bytes& content,
                             s64 lcn);
  // To the stream, which is made when it is missing; past its end a hole comes into being.
  void Write(std::uint64_t item, std::u16string_view stream, s64 offset, const Bytes& content);
  // Gives a file clusters to which nothing is written.
  void Preallocate(std::uint64_t item, std::u16string_view stream, s64 size);
  // Leaves only so many clusters free.
  void Fill(s64 left);
  void SetAttributes(std::uint64_t item, std::uint32_t attributes);
  // Gives the unnamed stream a sparse mark although it has no hole.
  void MarkSparse(std::uint64_t item);
  // Everything that must survive, by what it belongs to: names, attributes, times, stream content.
  std::map<std::string, std::string> Snapshot() const;

 private:
  ntfs_volume* volume_;
};

// Bytes that differ from one seed to another, some stretches compressible.
Bytes Content(std::size_t size, std::uint64_t seed);

// All streams with a path of the volume, folders and $MFT included.
struct NamedStream {
  std::string path;
  StreamRef stream;
};
std::vector<NamedStream> AllStreams(MountedVolume& volume);

// While one of these lives, what is allocated may be lost: the library frees not all that it has
// when it gives up mounting a damaged volume.
class MayLeak {
 public:
  MayLeak();
  MayLeak(const MayLeak&) = delete;
  MayLeak& operator=(const MayLeak&) = delete;
  ~MayLeak();
};

// The first run of count free clusters from lcn on, -1 when there is none.
std::int64_t FreeRun(const MountedVolume& volume, std::int64_t lcn, std::int64_t count);

// Through the whole of opening an image: locks, journal beside it. Throws VolumeRefused.
std::unique_ptr<MountedVolume> OpenFile(const ImageFile& image, bool writable,
                                        bool allow_dirty = false);

// A volume in memory, where flushing costs nothing.
class MemoryVolume {
 public:
  explicit MemoryVolume(Bytes content);

  ImageVolume& operator*() { return *volume_; }
  ImageVolume* operator->() { return volume_.get(); }
  FailingDevice& Device() { return failing_; }
  // Closes the volume and stores it as image.
  ErrorCode Finish(const ImageFile& image);

 private:
  MemoryDevice device_;
  FailingDevice failing_;
  MemoryJournal journal_;
  std::unique_ptr<ImageVolume> volume_;
};

// Both judges: a checker that shares no code with what is tested, and a fresh libntfs-3g.
// Empty when the image is sound and holds what it should.
std::string Complaint(const ImageFile& image, const std::map<std::string, std::string>& expected);

}  // namespace vornalux::test
