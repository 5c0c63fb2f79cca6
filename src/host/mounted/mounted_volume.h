// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/mounted/folder_listing.h"
#include "host/mounted/smart_drive.h"
#include "platform/types.h"
#include "platform/volumes.h"

namespace vornalux {

struct FolderItem {
  std::string name;  // UTF-8, WTF-8 for unpaired surrogates
  std::uint32_t attributes = 0;
  ItemId id = 0;
};

// A run list of an item. stream is what follows the item's path: empty for a file's data or a
// folder's own clusters, ":name:$DATA" or ":name" for a named data stream, "::$BITMAP" and the like
// where the file system has such attributes.
struct StreamRef {
  ItemId item = 0;
  std::string stream;
};

struct VolumeFacts {
  std::string file_system;  // "NTFS", "FAT32", "FAT" (12 and 16)
  std::string label;
  std::uint64_t serial = 0;
  std::uint32_t bytes_per_sector = 512;
  std::uint32_t sectors_per_cluster = 1;
  std::int64_t total_clusters = 0;  // also the size of the bitmap
};

// How small a program for that can make a volume as its files lie now.
struct SmallestSize {
  std::uint64_t bytes = 0;         // to be named to that program
  std::uint64_t left_to_move = 0;  // bytes that it has to move itself
  bool bad_clusters = false;       // the volume has some, of which that program wants to be told
};

// One volume, wherever it lives: what MountedPlatform needs to answer the program's questions.
// Not thread-safe. Cluster numbers start at 0 for the first cluster that the bitmap describes.
class MountedVolume {
 public:
  virtual ~MountedVolume() = default;

  virtual const VolumeFacts& Facts() const = 0;
  virtual std::int64_t FreeClusters() const = 0;
  virtual std::optional<NtfsVolumeData> NtfsData() const = 0;

  // Copies bitmap bytes from first_lcn (a multiple of 8) on; clusters past the end read as 0.
  // Clusters freed by a move show as free at once.
  virtual void CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const = 0;

  // As Volumes::BitmapChanges(), for a volume that others may write to.
  virtual bool BitmapChanges(std::uint64_t& mark, std::vector<std::int64_t>& /*lcns*/) {
    mark = 0;
    return false;
  }

  virtual ItemId Root() const = 0;

  // The folder's items in the volume's own order, without "." and "..", DOS-only names and volume
  // metafiles. kOperationAborted when out wants no more. Other questions may be asked while out
  // takes an item, a move is refused then.
  virtual ErrorCode List(ItemId folder, FolderListing& out) = 0;
  ErrorCode ListFolder(ItemId folder, std::vector<FolderItem>& out);

  // The form of a name under which two names that the volume takes for equal are equal.
  virtual std::string FoldName(std::string_view name) const = 0;

  // An item that has a path but is in no listing, such as NTFS's "$MFT" in the root.
  virtual std::optional<FolderItem> HiddenItem(ItemId folder, std::string_view name) = 0;

  // All extents in VCN order, adjoining runs as one. Empty for a stream without clusters (resident
  // or zero length). kFileNotFound for a stream that does not exist.
  virtual ErrorCode Extents(const StreamRef& stream, std::vector<Extent>& out) = 0;

  // ":name:$DATA" of every data stream, the default "::$DATA" included (folders have none of that).
  virtual ErrorCode StreamNames(ItemId item, std::vector<std::string>& out) = 0;

  // Content from offset on; fewer bytes than asked for only at the end of the stream.
  virtual ErrorCode Read(const StreamRef& stream, std::uint64_t offset, std::span<std::uint8_t> out,
                         std::size_t& done) = 0;

  // The volume's own bytes from offset on, all of out. kNotSupported where there are none.
  virtual ErrorCode ReadDevice(std::uint64_t /*offset*/, std::span<std::uint8_t> /*out*/) {
    return error::kNotSupported;
  }

  // The byte at which the disk failed to be read, of the last such failure since this was asked;
  // nothing when there was none.
  virtual std::optional<std::uint64_t> TakeReadFault() { return std::nullopt; }

  // Why the disk did not take the content of a file that was to be moved, the first time that it
  // did not; the file stayed where it was.
  virtual ErrorCode WriteFault() const { return error::kSuccess; }

  // The disk below; null where there is none to be asked.
  virtual SmartDrive* Drive() { return nullptr; }

  // Moves count clusters from vcn on to lcn, all or nothing. The target must be wholly free; the
  // range is clipped at the end of the allocation; holes are skipped and take no target clusters.
  // kInvalidParameter: count < 1, negative or out-of-volume numbers, vcn at or past the end of the
  // allocation. kAccessDenied: target taken or item immovable. Range with holes only: success.
  // kOperationAborted: given up at a checkpoint, where the volume can be read as it was before the
  // move. kNotReady: asked for inside a checkpoint; so are Commit() and Close() then.
  virtual ErrorCode Move(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn,
                         std::int64_t count, const MoveCheckpoint& checkpoint = {}) = 0;

  // By all moves that have come to a good end; 0 where nobody counts.
  virtual std::int64_t ClustersMoved() const { return 0; }

  // Gives up the snapshots that moving would spoil, where the volume was opened to do so: for who
  // is to change what they refer to without a move. Success where there are none.
  virtual ErrorCode DropRestorePoints() { return error::kSuccess; }

  // Makes everything moved so far durable.
  virtual ErrorCode Commit() = 0;

  // As Commit(), then leaves the volume as clean as it was found. Nothing can be moved afterwards.
  virtual ErrorCode Close() = 0;

  // False when a move was asked for, but the volume could not even be prepared for one: nothing was
  // written to it, and Close() gives the reason.
  virtual bool CouldBegin() const { return true; }

  // What the work has done to the volume besides moving clusters, each as a sentence for the user.
  virtual std::vector<std::string> Remarks() const { return {}; }

  // Nothing where nobody can tell, or the volume cannot become any smaller.
  virtual std::optional<SmallestSize> Smallest() { return std::nullopt; }

  // Was the volume marked dirty when it was opened?
  virtual bool Dirty() const = 0;
};

}  // namespace vornalux
