// SPDX-License-Identifier: GPL-2.0-or-later
// How the commands to a disk look on their way through the Linux kernel, what is made of its
// answers, and how the whole disk is found. The kernel's side is played by the test.
#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <filesystem>
#include <fstream>

#include "host/image/drive/ata_pass_through.h"
#include "host/image/drive/block_drive.h"
#include "host/image/drive/hwmon_drive.h"
#include "host/image/drive/nvme_health.h"
#include "host/image/drive/rotation.h"
#include "host/image/drive/whole_disk.h"
#include "support/image_folder.h"

namespace vornalux::test {
namespace {

constexpr DriveRegisters kEnable = {0xD8, 1, 1, 0x4F, 0xC2, 0, 0xB0};
constexpr DriveRegisters kAttributes = {0xD0, 1, 1, 0x4F, 0xC2, 0, 0xB0};
constexpr DriveRegisters kIdentity = {0, 1, 1, 0, 0, 0, 0};

// Nodes answer what this says, and note what they are asked.
struct Kernel {
  bool nvme = false;
  ScsiReply scsi;
  NvmeReply nvme_reply;
  DriveSector data{};
  int nodes_that_refuse = 0;  // the first ones
  int refusal = EPERM;
  bool has_whole_disk = true;

  std::vector<std::pair<ScsiCommand, std::size_t>> scsi_asked;
  std::vector<NvmeCommand> nvme_asked;
  std::vector<int> nodes_asked;  // 0: the partition, 1: the disk
};

class FakeNode final : public DriveNode {
 public:
  FakeNode(Kernel& kernel, int number) : kernel_(kernel), number_(number) {}

  bool IsNvme() override { return kernel_.nvme; }
  ScsiReply Scsi(const ScsiCommand& command, std::span<std::uint8_t> data) override {
    kernel_.scsi_asked.emplace_back(command, data.size());
    if (Refuses()) return {.refused = kernel_.refusal};
    std::copy_n(kernel_.data.begin(), data.size(), data.begin());
    return kernel_.scsi;
  }
  NvmeReply Nvme(const NvmeCommand& command, std::span<std::uint8_t> data) override {
    kernel_.nvme_asked.push_back(command);
    if (Refuses()) return {.refused = kernel_.refusal};
    std::copy_n(kernel_.data.begin(), data.size(), data.begin());
    return kernel_.nvme_reply;
  }
  std::unique_ptr<DriveNode> WholeDisk() override {
    return kernel_.has_whole_disk ? std::make_unique<FakeNode>(kernel_, number_ + 1) : nullptr;
  }

 private:
  bool Refuses() {
    kernel_.nodes_asked.push_back(number_);
    return number_ < kernel_.nodes_that_refuse;
  }

  Kernel& kernel_;
  int number_;
};

BlockDrive DriveOf(Kernel& kernel) { return BlockDrive(std::make_unique<FakeNode>(kernel, 0)); }

TEST(BlockDrive, CommandsArePassedThroughWithTheirRegisters) {
  Kernel kernel;
  kernel.scsi.received = 512;
  kernel.data.fill(0x5A);
  BlockDrive drive = DriveOf(kernel);
  DriveSector sector{};
  EXPECT_EQ(drive.Send(kEnable), error::kSuccess);
  EXPECT_EQ(drive.Receive(kAttributes, sector), error::kSuccess);
  EXPECT_EQ(sector, kernel.data);
  EXPECT_EQ(drive.Receive(kIdentity, sector), error::kSuccess);
  EXPECT_EQ(sector, DriveSector{}) << "no command, no data";
  drive.Receive({1, 2, 3, 4, 5, 6, 0xEC}, sector);
  const std::pair<ScsiCommand, std::size_t> expected[] = {
      {{0x85, 0x06, 0, 0, 0xD8, 0, 1, 0, 1, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}, 0},
      {{0x85, 0x08, 0x0E, 0, 0xD0, 0, 1, 0, 1, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}, 512},
      {{0x85, 0x06, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0}, 0},
      {{0x85, 0x08, 0x0E, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 6, 0xEC, 0}, 512}};
  ASSERT_EQ(kernel.scsi_asked.size(), std::size(expected));
  EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), kernel.scsi_asked.begin()));
}

// Sense data in descriptors, of which the last holds the drive's registers.
std::vector<std::uint8_t> WithRegisters(std::vector<std::uint8_t> before, std::uint8_t error,
                                        std::uint8_t status) {
  const auto length = static_cast<std::uint8_t>(before.size() + 14);
  before.insert(before.begin(), {0x72, 1, 0, 0x1D, 0, 0, 0, length});
  before.insert(before.end(), {9, 12, 0, error, 0, 1, 0, 1, 0, 0x4F, 0, 0xC2, 0, status});
  return before;
}

TEST(BlockDrive, MakesOfAnAnswerWhatCanBeBelieved) {
  struct Case {
    const char* what;
    ErrorCode error;
    int status;
    std::vector<std::uint8_t> sense;
    int refused = 0;
    std::size_t received = 512;
    std::uint16_t host = 0;
  };
  constexpr ErrorCode kGood = error::kSuccess;
  constexpr ErrorCode kFailed = error::kGenFailure;
  constexpr ErrorCode kUnknown = error::kNotSupported;
  const Case kCases[] = {
      {"good", kGood, 0, {}},
      {"short", kGood, 0, {}, 0, 100},
      {"more than there was room for", kGood, 0, {}, 0, 100000},
      {"the adapter failed", kFailed, 0, {}, 0, 512, 3},
      {"busy", kFailed, 8, {}},
      {"no sense data", kFailed, 2, {}},
      {"sense data cut short", kFailed, 2, {0x72, 1, 0, 0, 0, 0, 0}},
      {"unknown command", kUnknown, 2, {0x70, 0, 5, 0, 0, 0, 0, 10}},
      {"unknown command, descriptors", kUnknown, 2, {0x72, 5, 0x20, 0, 0, 0, 0, 0}},
      {"not ready", error::kNotReady, 2, {0x70, 0, 2, 0, 0, 0, 0, 10}},
      {"aborted", kFailed, 2, {0x72, 11, 0, 0, 0, 0, 0, 0}},
      {"registers, good", kGood, 2, WithRegisters({}, 0, 0x50)},
      {"registers, failed", kFailed, 2, WithRegisters({}, 4, 0x51)},
      {"registers after another descriptor", kFailed, 2, WithRegisters({3, 2, 0, 0}, 4, 0x51)},
      {"a descriptor that does not end", kGood, 2, {0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 255}},
      {"registers in the fixed format", kFailed, 2, {0x70, 0, 1, 4, 0x51, 0, 0, 10}},
      {"some other format", kFailed, 2, {0x7F, 0, 0, 0, 0, 0, 0, 0}},
      {"no such request", kUnknown, 0, {}, ENOTTY},
      {"no rights", error::kAccessDenied, 0, {}, EPERM},
      {"unplugged", error::kNotReady, 0, {}, ENODEV},
      {"anything else", kFailed, 0, {}, EIO},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    Kernel kernel;
    kernel.has_whole_disk = false;
    kernel.data.fill(0x5A);
    kernel.scsi = {.refused = c.refused,
                   .status = static_cast<std::uint8_t>(c.status),
                   .host = c.host,
                   .received = c.received,
                   .sense_size = c.sense.size()};
    std::copy(c.sense.begin(), c.sense.end(), kernel.scsi.sense.begin());
    DriveSector sector;
    sector.fill(1);
    EXPECT_EQ(DriveOf(kernel).Receive(kAttributes, sector), c.error);
    const std::size_t given = c.error == kGood ? std::min<std::size_t>(c.received, 512) : 0;
    EXPECT_EQ(static_cast<std::size_t>(std::count(sector.begin(), sector.end(), 0x5A)), given);
    EXPECT_EQ(static_cast<std::size_t>(std::count(sector.begin(), sector.end(), 0)), 512 - given);
  }
  // More than there is room for is claimed to have been written.
  ScsiReply reply;
  reply.status = 2;
  reply.sense = {0x72, 1, 0, 0x1D, 0, 0, 0, 24, 3, 22};
  reply.sense_size = 200;
  EXPECT_EQ(AtaResult(reply), error::kSuccess);
}

TEST(BlockDrive, APartitionThatRefusesIsLeftForTheWholeDisk) {
  struct Case {
    const char* what;
    int refusal, nodes_that_refuse;
    bool has_whole_disk;
    ErrorCode error;
    std::vector<int> asked;
  };
  const Case kCases[] = {
      {"takes it itself", EPERM, 0, true, error::kSuccess, {0, 0}},
      {"not allowed", EPERM, 1, true, error::kSuccess, {0, 1, 1}},
      {"not known", ENOTTY, 1, true, error::kSuccess, {0, 1, 1}},
      {"neither of them", EPERM, 2, true, error::kAccessDenied, {0, 1, 1}},
      {"no disk", EPERM, 1, false, error::kAccessDenied, {0, 0}},
      {"another failure", EIO, 1, true, error::kGenFailure, {0, 0}},
  };
  for (const Case& c : kCases) {
    for (const bool nvme : {false, true}) {
      SCOPED_TRACE(std::string(c.what) + (nvme ? ", NVMe" : ""));
      Kernel kernel;
      kernel.nvme = nvme;
      kernel.refusal = c.refusal;
      kernel.nodes_that_refuse = c.nodes_that_refuse;
      kernel.has_whole_disk = c.has_whole_disk;
      BlockDrive drive = DriveOf(kernel);
      DriveSector sector;
      EXPECT_EQ(drive.Receive(kAttributes, sector), c.error);
      EXPECT_EQ(drive.Receive(kAttributes, sector), c.error);
      EXPECT_EQ(kernel.nodes_asked, c.asked);
    }
  }
}

TEST(BlockDrive, NvmeTellsItsTemperatureAsAnAttribute) {
  struct Case {
    int kelvin, degrees, status = 0;
  };
  const Case kCases[] = {{0, 0},     {273, 0}, {274, 1},   {314, 41},       {329, 56},
                         {528, 255}, {529, 0}, {65535, 0}, {314, 0, 0x4002}};
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.kelvin);
    Kernel kernel;
    kernel.nvme = true;
    kernel.nvme_reply.status = c.status;
    kernel.data.fill(194);
    kernel.data[1] = static_cast<std::uint8_t>(c.kelvin);
    kernel.data[2] = static_cast<std::uint8_t>(c.kelvin >> 8);
    BlockDrive drive = DriveOf(kernel);
    DriveSector sector;
    EXPECT_EQ(drive.Send(kEnable), error::kSuccess);
    EXPECT_EQ(drive.Receive(kIdentity, sector), error::kInvalidFunction);
    EXPECT_EQ(drive.Receive(kAttributes, sector),
              c.status == 0 ? error::kSuccess : error::kGenFailure);
    EXPECT_EQ(sector[14], c.degrees == 0 ? 0 : 194) << "the second entry";
    EXPECT_EQ(sector[19], c.degrees);
    EXPECT_EQ(std::count(sector.begin(), sector.end(), 194), c.degrees == 0 ? 0 : 1);
    ASSERT_EQ(kernel.nvme_asked.size(), 1U);
    EXPECT_EQ(kernel.nvme_asked[0].opcode, 0x02);
    EXPECT_EQ(kernel.nvme_asked[0].namespace_id, 0xFFFFFFFF);
    EXPECT_EQ(kernel.nvme_asked[0].dword10, 0x007F0002U);
    EXPECT_TRUE(kernel.scsi_asked.empty());
  }
}

class WholeDisk : public ImageFolder {
 protected:
  // A device of a made-up sysfs, in the folder devices/NAME.
  void Add(const std::string& name, const std::string& numbers, bool partition,
           const std::vector<std::string>& slaves = {}) const {
    namespace fs = std::filesystem;
    const fs::path folder = Path("sys/devices/" + name);
    fs::create_directories(folder / "slaves");
    fs::create_directories(Path("sys/dev/block"));
    std::ofstream(folder / "dev") << numbers << "\n";
    std::ofstream(folder / "uevent") << "MAJOR=8\nDEVNAME=" << folder.filename().string() << "\n";
    if (partition) std::ofstream(folder / "partition") << "1\n";
    for (const std::string& slave : slaves) {
      fs::create_directory_symlink(Path("sys/devices/" + slave),
                                   folder / "slaves" / fs::path(slave).filename());
    }
    fs::create_directory_symlink(folder, Path("sys/dev/block/" + numbers));
  }
};

TEST_F(WholeDisk, IsFoundThroughPartitionsAndWhatIsPutOnTop) {
  Add("sda", "8:0", false);
  Add("sda/sda1", "8:1", true);
  Add("sdb", "8:16", false);
  Add("dm-0", "253:0", false, {"sda/sda1"});  // encrypted
  Add("dm-1", "253:1", false, {"dm-0"});      // a logical volume on it
  Add("md0", "9:0", false, {"sda", "sdb"});   // of two disks: neither speaks for both
  Add("md0/md0p1", "9:1", true);
  Add("dm-2", "253:2", false, {"dm-2"});  // on itself
  const std::pair<const char*, const char*> kCases[] = {
      {"8:0", ""},    {"8:1", "8:0"}, {"253:0", "8:0"}, {"253:1", "8:0"}, {"9:0", ""},
      {"9:1", "9:0"}, {"253:2", ""},  {"99:9", ""},     {"../8:1", ""},   {"", ""}};
  for (const auto& [device, whole] : kCases) {
    EXPECT_EQ(WholeDiskOf(Path("sys"), device), whole) << device;
  }
  EXPECT_EQ(DeviceNodeOf(Path("sys"), "8:1"), "/dev/sda1");
  EXPECT_EQ(DeviceNodeOf(Path("sys"), "99:9"), "");
  std::ofstream(Path("sys/devices/sda/sda1/start")) << "2048\n";
  EXPECT_EQ(NodeOfPartition(Path("sys"), "8:0", 2048 * 512), "/dev/sda1");
  EXPECT_EQ(NodeOfPartition(Path("sys"), "8:0", 2049 * 512), "");
}

// Where the kernel has a sensor for the disk, the disk itself is left alone.
TEST_F(WholeDisk, ItsTemperatureIsTheKernelsToTell) {
  Add("sda", "8:0", false);
  Add("sda/sda1", "8:1", true);
  Add("dm-0", "253:0", false, {"sda/sda1"});
  Add("nvme0n1", "259:0", false);
  Add("nvme0n1/nvme0n1p1", "259:1", true);
  struct Case {
    const char *sensor, *name, *input, *device;
    int degrees;  // 0: the disk is asked
  };
  const Case kCases[] = {{"sda/device/hwmon/hwmon3", "drivetemp", "41000", "8:0", 41},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "41999", "8:1", 41},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "55000", "253:0", 55},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "55000", "259:0", 0},
                         {"nvme0n1/device/hwmon1", "nvme", "38850", "259:1", 38},
                         {"nvme0n1/device/device/hwmon/hwmon0", "nvme", "38850", "259:1", 38},
                         {"nvme0n1/device/nvme0/hwmon2", "nvme", "38850", "259:1", 38},
                         {"sda/device/hwmon/hwmon3", "coretemp", "41000", "8:0", 0},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "", "8:0", 0},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "hot", "8:0", 0},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "999", "8:0", 0},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "256000", "8:0", 0},
                         {"sda/device/hwmon/hwmon3", "drivetemp", "99999999999", "8:0", 0}};
  for (const Case& c : kCases) {
    SCOPED_TRACE(std::string(c.sensor) + " " + c.input + " " + c.device);
    const std::filesystem::path folder = Path("sys/devices/" + std::string(c.sensor));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "name") << c.name << "\n";
    std::ofstream(folder / "temp1_input") << c.input << "\n";
    Kernel kernel;
    kernel.data.fill(7);
    kernel.scsi.received = 512;
    HwmonDrive drive(Path("sys"), c.device, std::make_unique<BlockDrive>(DriveOf(kernel)));
    DriveSector sector;
    EXPECT_EQ(drive.Send(kEnable), error::kSuccess);
    EXPECT_EQ(drive.Receive(kAttributes, sector), error::kSuccess);
    EXPECT_EQ(sector[14], c.degrees == 0 ? 7 : 194);
    EXPECT_EQ(sector[19], c.degrees == 0 ? 7 : c.degrees);
    EXPECT_EQ(drive.Receive(kIdentity, sector),
              c.degrees == 0 ? error::kSuccess : error::kInvalidFunction);
    EXPECT_EQ(kernel.scsi_asked.empty(), c.degrees != 0);
    std::filesystem::remove_all(folder);
  }
}

TEST_F(WholeDisk, TurnsWhenOneOfThoseBelowDoes) {
  const auto add = [&](const std::string& name, const std::string& numbers, const char* word,
                       const std::vector<std::string>& slaves = {}) {
    Add(name, numbers, name.find('/') != std::string::npos, slaves);
    if (*word == '\0') return;
    std::filesystem::create_directory(Path("sys/devices/" + name + "/queue"));
    std::ofstream(Path("sys/devices/" + name + "/queue/rotational")) << word << "\n";
  };
  add("sda", "8:0", "1");
  add("sda/sda1", "8:1", "");
  add("nvme0n1", "259:0", "0");
  add("nvme0n1/p1", "259:1", "");
  add("vda", "254:0", "");                         // does not say
  add("dm-0", "253:0", "0", {"sda/sda1"});         // encrypted
  add("md0", "9:0", "0", {"nvme0n1/p1", "dm-0"});  // a mirror with one of each
  add("md0/md0p1", "9:1", "");
  add("dm-1", "253:1", "1", {"nvme0n1/p1"});
  add("dm-2", "253:2", "1", {"vda"});
  add("dm-3", "253:3", "", {"vda", "nvme0n1"});
  add("dm-4", "253:4", "", {"dm-4"});  // on itself
  add("loop0", "7:0", "0\n1");
  constexpr auto kNothing = std::optional<bool>();
  const std::pair<const char*, std::optional<bool>> kCases[] = {
      {"8:0", true},       {"8:1", true},      {"259:0", false},     {"259:1", false},
      {"254:0", kNothing}, {"253:0", true},    {"9:0", true},        {"9:1", true},
      {"253:1", false},    {"253:2", true},    {"253:3", kNothing},  {"253:4", kNothing},
      {"7:0", false},      {"0:45", kNothing}, {"../8:1", kNothing}, {"", kNothing}};
  for (const auto& [device, turns] : kCases) {
    EXPECT_EQ(IsRotational(Path("sys"), device), turns) << device;
  }
}

}  // namespace
}  // namespace vornalux::test
