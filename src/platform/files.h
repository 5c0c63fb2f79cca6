// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vornalux {

enum class FileAccess { ReadAttributes, GenericRead };
enum class FileFlags { None, NoBuffering, BackupSemantics };

struct OpenedFile {
  Handle handle = kInvalidHandle;
  ErrorCode error = error::kSuccess;
};

// A piece of a file's retrieval pointers. Untrusted: the reader checks that it makes progress.
struct ExtentChunk {
  std::int64_t starting_vcn = 0;
  std::vector<Extent> extents;
};

struct FolderEntry {
  std::string name;
  std::uint32_t attributes = 0;
};

// An enumeration in progress; destroying it closes it.
class FolderSearch {
 public:
  virtual ~FolderSearch() = default;
  // False at the end; then entry is unchanged.
  virtual bool Next(FolderEntry& entry) = 0;
};

// Files and folders by full path, with or without the "\\?\" prefix. Text is UTF-8 (WTF-8 where a
// name holds unpaired surrogates).
class Files {
 public:
  virtual ~Files() = default;

  // Opens what exists, sharing read and write.
  virtual OpenedFile OpenPath(const std::string& path, FileAccess access, FileFlags flags) = 0;
  virtual void CloseFile(Handle file) = 0;

  // Up to max_extents extents from the one that holds starting_vcn on. kMoreData when more follow,
  // kHandleEof when the file has no clusters from there on.
  virtual ErrorCode RetrievalPointers(Handle file, std::int64_t starting_vcn,
                                      std::size_t max_extents, ExtentChunk& out) = 0;

  // Names of all data streams, the default one included, as ":name:$DATA".
  virtual ErrorCode StreamNames(Handle file, std::vector<std::string>& out) = 0;

  // pattern is a folder path followed by "*". Null when the folder cannot be enumerated. Entries
  // come in the volume's own order. Where the whole folder is listed first, which takes a while for
  // a large one, go_on is asked on the way; null when it says no.
  virtual std::unique_ptr<FolderSearch> FindFirst(const std::string& pattern,
                                                  const std::function<bool()>& go_on = {}) = 0;

  // The whole of a small file as bytes.
  virtual ErrorCode ReadBytes(const std::string& path, std::string& out) = 0;

  // Text as files of 8-bit text hold it, in UTF-8. Hosts that have no code page leave it as it is.
  virtual std::string FromCodePage(std::string text) { return text; }
};

}  // namespace vornalux
