// SPDX-License-Identifier: GPL-2.0-or-later
// Volumes that no pass may work on can be looked at, and what is seen is the truth.
#include <algorithm>
#include <bit>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "check/volume_check.h"
#include "host/image/device/little_endian.h"
#include "host/image/journal/journal_format.h"
#include "support/made_volume.h"
#include "volumes/ntfs/snapshot_image.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kDrop = "--drop-restore-points";

// --- Volumes as other systems leave them when they are not done with them.

// The two pages with which it begins.
std::vector<std::uint8_t> RestartPages(std::uint16_t major, bool clean) {
  constexpr std::size_t kPage = 4096;
  constexpr std::uint64_t kFileSize = 2 << 20;
  std::vector<std::uint8_t> pages(2 * kPage);
  const std::span<std::uint8_t> header(pages);
  std::copy_n("RSTR", 4, pages.begin());
  StoreLittle<std::uint16_t>(header, 4, 30);  // update sequence array: offset, count
  StoreLittle<std::uint16_t>(header, 6, 9);
  StoreLittle<std::uint32_t>(header, 16, kPage);
  StoreLittle<std::uint32_t>(header, 20, kPage);
  StoreLittle<std::uint16_t>(header, 24, 48);  // restart area
  StoreLittle<std::uint16_t>(header, 26, major == 1 ? 1 : 0);
  StoreLittle<std::uint16_t>(header, 28, major);
  StoreLittle<std::uint16_t>(header, 30, 1);
  const std::span<std::uint8_t> area = header.subspan(48);
  StoreLittle<std::uint16_t>(area, 8, 1);  // clients: one, not free, in use
  StoreLittle<std::uint16_t>(area, 10, 0xFFFF);
  StoreLittle<std::uint16_t>(area, 12, 0);
  StoreLittle<std::uint16_t>(area, 14, clean ? 2 : 0);
  StoreLittle<std::uint32_t>(area, 16, 67 - std::bit_width(kFileSize));
  StoreLittle<std::uint16_t>(area, 20, 48 + 160);
  StoreLittle<std::uint16_t>(area, 22, 48);
  StoreLittle<std::uint64_t>(area, 24, kFileSize);
  StoreLittle<std::uint32_t>(area, 48 + 16, 0xFFFFFFFF);
  for (std::size_t end = 512; end <= kPage; end += 512) {
    StoreLittle<std::uint16_t>(header, end - 2, 1);
  }
  std::copy_n(pages.begin(), kPage, pages.begin() + kPage);
  return pages;
}

void MarkHibernated(NtfsEditor& editor) {
  for (const CheckedItem& item : editor.report.items) {
    if (item.path != "/hiberfil.sys" || item.extents.empty()) continue;
    std::copy_n("hibr", 4, editor.At(item.extents[0].lcn).begin());
    return;
  }
  throw std::logic_error("no hiberfil.sys with clusters of its own");
}

void MarkDirty(NtfsEditor& editor) {
  editor.Attribute(3, 0x70, [](ByteSpan a) { a[Get(a, 20, 2) + 10] |= 1; });
}

// What a $LogFile begins with that Windows has used.
void WriteLog(NtfsEditor& editor, std::uint16_t major, bool finished) {
  std::ranges::copy(RestartPages(major, finished),
                    editor.At(editor.Meta("/$LogFile").extents[0].lcn).begin());
}

struct UncleanState {
  const char* what;
  const char* finding;  // what a refusal says of it
  std::function<void(NtfsEditor&)> make;
};

// Of a volume with a file hiberfil.sys in the root, all zeros and not resident.
std::vector<UncleanState> UncleanStates() {
  return {{"dirty", "is marked dirty", MarkDirty},
          {"hibernated", "is held by a hibernated Windows", MarkHibernated},
          {"unfinished log", "has unfinished changes in its log file",
           [](NtfsEditor& editor) { WriteLog(editor, 1, false); }},
          {"fast startup", "is held by a hibernated Windows",
           [](NtfsEditor& editor) { WriteLog(editor, 2, true); }},
          {"dirty and hibernated", "is held by a hibernated Windows", [](NtfsEditor& editor) {
             MarkDirty(editor);
             MarkHibernated(editor);
           }}};
}

class Looking : public MadeVolume {
 protected:
  // A result without what says that the volume was only looked at; "objections" are handed out.
  Json Result(const Arguments& arguments, std::vector<std::string>& objections) const {
    const ProgramEnd end = RunProgram(arguments);
    EXPECT_EQ(end.code, 0) << end.err;
    if (end.code != 0) return {};
    Json json = Json::parse(end.out);
    objections = json["objections"];
    for (const std::string& objection : objections) {
      EXPECT_NE(
          end.err.find(image_ + " is only looked at: a pass would refuse it: " + objection + "\n"),
          std::string::npos)
          << end.err;
    }
    for (const char* other : {"objections", "seconds", "bytes_per_second"}) json.erase(other);
    return json;
  }

  std::vector<Json> Looks(std::vector<std::string>& objections) const {
    std::vector<Json> all;
    for (const Arguments& line :
         {Arguments{"analyze", "--json", "--list", "--quiet", image_},
          Arguments{"defrag", "--dry-run", "--json", "--quiet", image_},
          Arguments{"optimize", "--dry-run", "--json", "--quiet", image_}}) {
      std::vector<std::string> these;
      all.push_back(Result(line, these));
      EXPECT_TRUE(all.size() == 1 || these == objections) << "of one volume";
      objections = these;
    }
    const ProgramEnd map = RunProgram({"map", image_, "--png", Path("map"), "--report", Path("r")});
    EXPECT_EQ(map.code, 0) << map.err;
    all.emplace_back(Get("map"));
    const Bytes page = Get("r");
    EXPECT_EQ(
        std::string(page.begin(), page.end()).find("a pass would refuse it") != std::string::npos,
        !objections.empty());
    return all;
  }

  // The image in a state must show what it shows without it. says: what a pass is refused with, the
  // finding first; nothing where a pass may come. dirty: a job's own disk check stops it, dry or
  // not.
  void ExpectSeenAlike(const Bytes& state, const std::vector<Json>& clean,
                       const std::vector<std::string>& says, bool dirty) const {
    Put("disk.img", state);
    const Bytes journal = Journal();
    std::vector<std::string> objections;
    EXPECT_TRUE(Looks(objections) == clean);
    EXPECT_TRUE(Get("disk.img") == state);
    ASSERT_EQ(objections.size(), says.empty() ? 0U : 1U);
    if (says.empty()) return;
    for (const std::string& part : says) {
      EXPECT_NE(objections[0].find(part), std::string::npos) << part << "\n" << objections[0];
    }
    for (const char* pass : {"defrag", "optimize", "compact", "trim"}) {
      const ProgramEnd end = RunProgram({pass, image_});
      EXPECT_EQ(end.code, 3) << pass;
      EXPECT_NE(end.err.find(objections[0]), std::string::npos) << end.err;
    }
    const ProgramEnd job = RunProgram({"job", "--volume", "C=" + image_, "--", "/drv C: /d"});
    EXPECT_EQ(job.code, 3);
    EXPECT_NE(std::min(job.err.find(says[0]), job.err.find(dirty ? "Chkdsk" : says[0])),
              std::string::npos)
        << job.err;
    const ProgramEnd dry =
        RunProgram({"job", "--volume", "C=" + image_, "--dry-run", "--", "/drv C: /d"});
    EXPECT_EQ(dry.code, dirty ? 3 : 0) << dry.err;
    EXPECT_TRUE(Get("disk.img") == state);
    EXPECT_EQ(Journal(), journal);
  }

  Bytes Journal() const {
    return Exists("disk.img.vornalux-journal") ? Get("disk.img.vornalux-journal") : Bytes();
  }
};

TEST_F(Looking, NtfsInEveryState) {
  Make("ntfs size=32M files=200 folders=20 fragmented=60% fill=60%");
  Run("truncate -s 8192 in && ntfscp -q -f disk.img in hiberfil.sys");
  AddSnapshots(image_, 2, false);
  const Bytes clean = Get("disk.img");
  const CheckReport sound = CheckVolume(image_);
  std::vector<std::string> objections;
  const std::vector<Json> seen = Looks(objections);
  EXPECT_EQ(objections, std::vector<std::string>());
  EXPECT_GT(seen[1]["moves"], 0);
  for (const UncleanState& state : UncleanStates()) {
    SCOPED_TRACE(recipe_ + ", " + state.what);
    NtfsEditor editor(clean, sound);
    state.make(editor);
    ExpectSeenAlike(editor.bytes, seen,
                    {state.finding, "not unmounted cleanly", "chkdsk /f", "Fast Startup",
                     "shutdown /s /f /t 0", "unfinished", "mount it once"},
                    std::string(state.what).starts_with("dirty"));
    if (HasFailure()) return;
  }
  NtfsEditor finished(clean, sound);
  WriteLog(finished, 1, true);
  ExpectSeenAlike(finished.bytes, seen, {}, false);
  const auto with_header = [&](std::uint64_t catalog) {
    Bytes image = clean;
    PutSnapshotHeader(image, catalog);
    return image;
  };
  const auto name =
      std::string("/System Volume Information/{3808876b-c176-4e48-b7ae-04046e6cc752}");
  const std::uint64_t catalog =
      static_cast<std::uint64_t>(sound.Find(name)->extents[0].lcn) * sound.cluster_size;
  ExpectSeenAlike(with_header(catalog), seen,
                  {"has 2 restore points (volume shadow copies), of 2019-03-01 12:00:00 UTC and "
                   "2019-03-02 12:00:00 UTC"},
                  false);
  ExpectSeenAlike(with_header(kCatalogBlock), seen, {"whose catalog cannot be read"}, false);
  ExpectSeenAlike(with_header(0), seen, {}, false);
}

TEST_F(Looking, FatMarkedDirtyOrBesideAJournalThatIsNotItsOwn) {
  const std::tuple<const char*, std::size_t, std::uint8_t> cases[] = {
      {"fat16 size=16M files=100 fragmented=80%", 0x25, 1},
      {"fat32 size=40M cluster=512 files=200 fragmented=60%", 0x41, 1},
  };
  for (const auto& [recipe, at, mark] : cases) {
    Make(recipe);
    SCOPED_TRACE(recipe_);
    std::vector<std::string> objections;
    const std::vector<Json> seen = Looks(objections);
    Bytes dirty = Get("disk.img");
    dirty[at] |= mark;
    ExpectSeenAlike(dirty, seen, {"fsck.fat -a"}, true);
    if (HasFailure()) return;
    dirty[at] ^= mark;
    // No journal at all, and one whose format nobody knows yet.
    journal_format::HeaderSector newer = journal_format::EncodeIdentity({});
    StoreLittle(newer, 8, journal_format::kVersion + 1);
    StoreLittle(newer, 508, journal_format::Checksum(std::span(newer).first(508)));
    const std::string path = image_ + ".vornalux-journal";
    const std::pair<Bytes, std::vector<std::string>> journals[] = {
        {Bytes(5000, 'x'), {path, "delete"}},
        {Bytes(newer.begin(), newer.end()), {path, "a newer version", "Keep it"}}};
    for (const auto& [journal, says] : journals) {
      Put("disk.img.vornalux-journal", journal);
      ExpectSeenAlike(dirty, seen, says, false);
      if (HasFailure()) return;
    }
    Run("rm disk.img.vornalux-journal");
  }
}

class RestorePoints : public Looking {
 protected:
  RestorePoints() {
    Make("ntfs size=32M files=200 folders=20 fragmented=60% fill=60%");
    manifest_ = AddSnapshots(image_, 3);
    extents_ = SnapshotExtents(image_);
    before_ = Get("disk.img");
  }

  std::string extents_;
};

TEST_F(RestorePoints, AreDroppedAsAWholeOrKept) {
  SCOPED_TRACE(recipe_);
  const std::string told = "3 restore points (volume shadow copies) ";
  const auto said = [&](const ProgramEnd& end, const std::string& what) {
    EXPECT_EQ(end.code, 0) << end.err;
    EXPECT_NE(end.err.find(image_ + ": " + told + what), std::string::npos) << end.err;
    const Json json = Json::parse(end.out);
    EXPECT_GT(json["moves"], 0);
    EXPECT_EQ(json["remarks"], Json({told + what}));
    EXPECT_EQ(json["objections"], Json::array());
  };
  std::set<std::string> tried;
  const auto note_tried = [&](const ProgramEnd& end) {
    const Json result = Json::parse(end.out);
    for (const Json& file : result["not_moved"]) {
      const std::string path = file["path"];
      if (file["reason"] == "refused" && path.ends_with("e6cc752}")) tried.insert(path);
    }
  };
  const Arguments job = {"job", "--volume", "C=" + image_, "--json", "--quiet", kDrop};
  said(RunProgram({"defrag", image_, kDrop, "--dry-run", "--json", "--quiet"}),
       "would be dropped.");
  said(RunProgram(And(job, {"--dry-run", "--", "/drv C: /d"})), "would be dropped.");
  const ProgramEnd idle = RunProgram(And(job, {"--", "/drv C:"}));
  EXPECT_EQ(idle.code, 0) << idle.err;
  EXPECT_EQ(Json::parse(idle.out)["remarks"], Json::array()) << "no move, no loss";
  EXPECT_TRUE(Get("disk.img") == before_);
  for (const char* command : {"defrag", "optimize", "compact", "job"}) {
    SCOPED_TRACE(command);
    Put("disk.img", before_);
    const bool is_job = command == std::string("job");
    const ProgramEnd end =
        RunProgram(is_job ? And(job, {"--", "/drv C: /o"})
                          : Arguments{command, image_, kDrop, "--json", "--quiet"});
    said(end, "were dropped.");
    note_tried(end);
    EXPECT_FALSE(HasSnapshotHeader(image_));
    EXPECT_EQ(SnapshotExtents(image_), extents_);
    ExpectWhole();
  }
  EXPECT_EQ(tried.size(), 4U) << "else this shows nothing";
  Put("disk.img", before_);
  const ProgramEnd trim = RunProgram({"trim", image_, kDrop, "--json"});
  EXPECT_NE(trim.err.find(image_ + ": " + told + "were dropped."), std::string::npos) << trim.err;
  EXPECT_GT(Json::parse(trim.out)["discard"]["discarded_bytes"], 0);
  EXPECT_FALSE(HasSnapshotHeader(image_));
  ExpectWhole();
  const ProgramEnd again = RunProgram({"defrag", image_});
  EXPECT_EQ(again.code, 0) << again.err;
  EXPECT_NE(again.out.find("(keeps restore points"), std::string::npos) << again.out;
  EXPECT_EQ(again.err.find("restore points"), std::string::npos) << again.err;
  EXPECT_EQ(SnapshotExtents(image_), extents_);
}

}  // namespace
}  // namespace vornalux::test
