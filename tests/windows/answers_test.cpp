// SPDX-License-Identifier: GPL-2.0-or-later
// What drivers answer, taken apart: right answers, and answers that lie.
#include <gtest/gtest.h>

#include "host/simulated/seeded_random.h"
#include "host/windows/file_system_answers.h"
#include "host/windows/system_headers.h"
#include "support/seed.h"
#include "windows/packed.h"

namespace vornalux {
namespace {

using test::Bytes;
using test::Packed;

// Memory that ends where the answer ends: reading on is a crash.
class Guarded {
 public:
  explicit Guarded(const Bytes& bytes) {
    const std::size_t room = (bytes.size() / kPage + 1) * kPage;
    memory_ =
        static_cast<std::uint8_t*>(VirtualAlloc(nullptr, room + kPage, MEM_RESERVE, PAGE_NOACCESS));
    VirtualAlloc(memory_, room, MEM_COMMIT, PAGE_READWRITE);
    answer_ = {memory_ + room - bytes.size(), bytes.size()};
    std::copy(bytes.begin(), bytes.end(), answer_.begin());
  }
  ~Guarded() { VirtualFree(memory_, 0, MEM_RELEASE); }
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;
  std::span<const std::uint8_t> Answer() const { return answer_; }

 private:
  static constexpr std::size_t kPage = 65536;
  std::uint8_t* memory_;
  std::span<std::uint8_t> answer_;
};

Bytes Extents(std::uint32_t count, std::int64_t vcn, const std::vector<Extent>& extents) {
  std::vector<std::int64_t> numbers = {std::int64_t{0x4CCCCCCC} << 32 | count, vcn};
  for (const Extent& extent : extents) numbers.insert(numbers.end(), {extent.NextVcn, extent.Lcn});
  return Packed(numbers);
}

TEST(Answers, ExtentsMustFitTheBytesAnswered) {
  const std::vector<Extent> extents = {{4, 100}, {8, -1}, {1LL << 40, 1LL << 41}};
  for (const std::uint32_t count : {0u, 1u, 3u, 4u, 0x10000000u, 0x10000003u, 0xFFFFFFFFu}) {
    ExtentChunk chunk;
    const Guarded memory(Extents(count, 2, extents));
    const ErrorCode error = TakeExtentsAnswer(memory.Answer(), chunk);
    ASSERT_EQ(error, count <= 3 ? error::kSuccess : kInvalidAnswer) << count;
    if (error != error::kSuccess) continue;
    EXPECT_EQ(chunk.starting_vcn, 2);
    EXPECT_EQ(chunk.extents,
              std::vector<Extent>(extents.begin(), extents.begin() + static_cast<int>(count)));
  }
}

TEST(Answers, BitmapSizeMustFitTheBytesAnswered) {
  struct Case {
    std::int64_t lcn, size;
    std::size_t bytes;
    bool more, valid;
  };
  constexpr auto kHuge = std::numeric_limits<std::int64_t>::max();
  constexpr Case kCases[] = {
      {0, 16, 2, false, true},   {8, 17, 3, false, true},     {0, 17, 2, false, false},
      {0, 0, 0, false, true},    {0, 64, 2, true, true},      {0, 8, 2, true, false},
      {0, kHuge, 2, true, true}, {0, kHuge, 2, false, false}, {0, -1, 2, true, false},
      {-8, 16, 2, false, false}, {0, 16, 3, false, true},
  };
  for (const Case& c : kCases) {
    BitmapChunk chunk;
    chunk.bits = Packed({c.lcn, c.size}, c.bytes);
    const ErrorCode error = TakeBitmapAnswer(c.more, chunk);
    ASSERT_EQ(error == error::kSuccess, c.valid) << c.lcn << ' ' << c.size << ' ' << c.bytes;
    if (!c.valid) continue;
    EXPECT_EQ(chunk.starting_lcn, c.lcn);
    EXPECT_EQ(chunk.bitmap_size, c.size);
    EXPECT_EQ(chunk.bits, Bytes(c.bytes, 0xA5));
  }
}

void PutStream(Bytes& bytes, std::uint32_t next, std::uint32_t length, std::wstring_view name) {
  const std::size_t at = bytes.size();
  const std::size_t name_bytes = name.size() * sizeof name[0];
  const Bytes entry =
      Packed({static_cast<std::int64_t>(std::uint64_t{length} << 32 | next), 5, 4096}, name_bytes);
  bytes.insert(bytes.end(), entry.begin(), entry.end());
  std::memcpy(&bytes[at + 24], name.data(), name_bytes);
  if (next != 0 && bytes.size() < at + next) bytes.resize(at + next);
}

TEST(Answers, StreamsAsAChain) {
  Bytes bytes;
  PutStream(bytes, 40, 14, L"::$DATA");
  PutStream(bytes, 48, 20, L":\xD800x\x20AC:$DATA");
  PutStream(bytes, 0, 4, L":a");
  std::vector<std::string> names;
  ASSERT_EQ(TakeStreamsAnswer(Guarded(bytes).Answer(), names), error::kSuccess);
  EXPECT_EQ(names, (std::vector<std::string>{"::$DATA", ":\xED\xA0\x80x\u20AC:$DATA", ":a"}));

  // Cut anywhere it is either whole or refused, and never half believed.
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(TakeStreamsAnswer(Guarded(cut).Answer(), names), kInvalidAnswer) << size;
    EXPECT_TRUE(names.empty());
  }
  EXPECT_EQ(TakeStreamsAnswer({}, names), error::kSuccess);
  EXPECT_TRUE(names.empty());
}

TEST(Answers, StreamsThatLie) {
  struct Case {
    std::uint32_t next, length;
  };
  for (const Case c : {Case{8, 4},
                       {1, 4},
                       {23, 0},
                       {28, 6},
                       {0, 5},
                       {0, 0xFFFFFFFE},
                       {0xFFFFFFF8, 4},
                       {30, 4},
                       {0, 8}}) {
    Bytes bytes;
    PutStream(bytes, 0, c.length, L":a");
    std::memcpy(bytes.data(), &c.next, sizeof c.next);
    bytes.resize(30);
    std::vector<std::string> names;
    EXPECT_EQ(TakeStreamsAnswer(Guarded(bytes).Answer(), names), kInvalidAnswer)
        << c.next << ' ' << c.length;
  }
}

TEST(Answers, NoBytesBringDownAReader) {
  test::TestRandom random;
  for (int i = 0; i < 3000; ++i) {
    Bytes bytes(static_cast<std::size_t>(random() % 200));
    for (std::uint8_t& byte : bytes) {
      byte = random() % 3 != 0 ? 0 : static_cast<std::uint8_t>(random() % 64);
    }
    const Guarded memory(bytes);
    ExtentChunk extents;
    NtfsVolumeData data;
    std::vector<std::string> names;
    BitmapChunk bitmap{.starting_lcn = 0, .bitmap_size = 0, .bits = bytes};
    std::uint32_t count = 0;
    std::memcpy(&count, bytes.data(), std::min(bytes.size(), sizeof count));
    EXPECT_EQ(TakeExtentsAnswer(memory.Answer(), extents) == error::kSuccess,
              bytes.size() >= 16 && count <= bytes.size() / 16 - 1);
    TakeStreamsAnswer(memory.Answer(), names);
    const ErrorCode bits_error = TakeBitmapAnswer(random() % 2 != 0, bitmap);
    EXPECT_TRUE(bits_error != error::kSuccess || bytes.size() >= 16);
    EXPECT_EQ(TakeNtfsAnswer(memory.Answer(), data) == error::kSuccess, bytes.size() >= 96);
    EXPECT_LE(names.size(), bytes.size() / 24);
  }
}

}  // namespace
}  // namespace vornalux
