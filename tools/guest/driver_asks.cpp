// SPDX-License-Identifier: GPL-2.0-or-later
#include "guest/driver_asks.h"

#include <cstdint>

namespace vornalux::guest {
namespace {

class Asker {
 public:
  Asker(Volumes& volumes, Files& files, const std::string& drive)
      : volumes_(volumes),
        files_(files),
        drive_(drive),
        volume_(volumes.OpenVolume("\\\\.\\" + drive)) {}

  std::vector<std::string> Ask() {
    BitmapChunk bitmap;
    volumes_.VolumeBitmap(volume_, 13, 8, bitmap);
    answers_.push_back("bitmap from 13 begins at " + std::to_string(bitmap.starting_lcn));
    AskFile();
    const Handle empty = Open("ASKED.NIL");
    Pointers("empty, pointers", empty, 0);
    Move("empty", empty, 0, Gap(1), 1);
    Move("folder", Open("ASKED.DIR"), 0, Gap(1), 1);
    const Handle root = Open("");
    Move("root folder", root, 0, Gap(1), 1);
    if (const ExtentChunk at = Pointers({}, root, 0); !at.extents.empty()) {
      answers_.push_back("root folder, pointers: 0 to " + std::to_string(at.extents[0].NextVcn) +
                         " at " + std::to_string(at.extents[0].Lcn));
    }
    for (const Handle file : opened_) files_.CloseFile(file);
    volumes_.CloseVolume(volume_);
    return std::move(answers_);
  }

 private:
  void AskFile() {
    const Handle file = Open("ASKED.BIN");
    const ExtentChunk at = Pointers({}, file, 0);
    if (at.extents.size() != 1) {
      answers_.push_back("ASKED.BIN is not in one piece");
      return;
    }
    const auto size = static_cast<std::uint32_t>(at.extents[0].NextVcn);
    const std::int64_t own = at.extents[0].Lcn;
    BitmapChunk bitmap;
    volumes_.VolumeBitmap(volume_, 0, 8, bitmap);
    const std::int64_t end = bitmap.bitmap_size;
    Move("file to the end of the volume", file, 0, end, 1);
    Move("file over the end of the volume", file, 0, end - 1, 2);
    Move("file, no cluster", file, 0, Gap(1), 0);
    Move("file onto itself", file, 0, own, size);
    Move("file onto its second cluster", file, 0, own + 1, 1);
    Move("file past its end", file, size + 10, Gap(1), 1);
    Pointers("file, pointers at its end", file, size);
    const std::int64_t gap = Gap(size + 5);
    Move("file beyond its clusters", file, 0, gap, size + 5);
    const ExtentChunk now = Pointers({}, file, 0);
    const bool whole = now.extents == std::vector<Extent>{{.NextVcn = size, .Lcn = gap}};
    answers_.push_back(whole ? "file is whole in the gap" : "file is elsewhere");
  }

  Handle Open(const std::string& name) {
    const FileFlags way = name.ends_with(".BIN") ? FileFlags::None : FileFlags::BackupSemantics;
    const OpenedFile opened =
        files_.OpenPath("\\\\?\\" + drive_ + "\\" + name, FileAccess::ReadAttributes, way);
    if (opened.handle == kInvalidHandle) {
      answers_.push_back("cannot open " + name + ": " + std::to_string(opened.error));
    } else {
      opened_.push_back(opened.handle);
    }
    return opened.handle;
  }

  void Answer(const std::string& question, ErrorCode code) {
    if (!question.empty()) answers_.push_back(question + ": " + std::to_string(code));
  }

  void Move(const std::string& question, Handle file, std::int64_t vcn, std::int64_t lcn,
            std::uint32_t count) {
    Answer(question, volumes_.MoveClusters(volume_, file, vcn, lcn, count));
  }

  ExtentChunk Pointers(const std::string& question, Handle file, std::int64_t vcn) {
    ExtentChunk chunk;
    Answer(question, files_.RetrievalPointers(file, vcn, 1024, chunk));
    return chunk;
  }

  // The first free clusters in such a row.
  std::int64_t Gap(std::int64_t count) {
    BitmapChunk bitmap;
    volumes_.VolumeBitmap(volume_, 0, std::size_t{1} << 20, bitmap);
    std::int64_t free = 0;
    for (std::int64_t lcn = 0; lcn < bitmap.bitmap_size; ++lcn) {
      const auto byte = static_cast<std::size_t>(lcn / 8);
      if (byte >= bitmap.bits.size()) break;
      free = (bitmap.bits[byte] >> (lcn % 8) & 1) != 0 ? 0 : free + 1;
      if (free == count) return lcn - count + 1;
    }
    answers_.push_back("no gap of " + std::to_string(count));
    return 0;
  }

  Volumes& volumes_;
  Files& files_;
  const std::string drive_;
  const Handle volume_;
  std::vector<Handle> opened_;
  std::vector<std::string> answers_;
};

}  // namespace

std::vector<std::string> AskFatDriver(Volumes& volumes, Files& files, const std::string& drive) {
  return Asker(volumes, files, drive).Ask();
}

}  // namespace vornalux::guest
