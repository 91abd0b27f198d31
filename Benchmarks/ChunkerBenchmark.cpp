// Compares the chunker's loops with plain ones: first their results for every possible float, then the time
// that each takes, and what `push` allocates. Exits with 1 if the results differ.

#include "Harness/PlainEncoding.h"
#include "TolveraCore/PCMChunker.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <span>
#include <thread>
#include <vector>

namespace {
std::atomic<long> allocations = 0;
}

// All other forms of `new` and `delete` call these.
void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace tolvera;

std::vector<float> plainDecode(std::span<const std::byte> data) {
  std::vector<float> samples;
  samples.reserve(data.size() / 2);
  for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
    int value = std::to_integer<int>(data[i]) | (std::to_integer<int>(data[i + 1]) << 8);
    if (value >= 32768) value -= 65536;
    samples.push_back(static_cast<float>(value) / 32768.0F);
  }
  return samples;
}

bool sameForEveryFloat() {
  constexpr std::uint64_t all = 1ULL << 32;
  constexpr std::uint64_t slice = 1ULL << 16;
  std::atomic<std::uint64_t> next = 0;
  std::atomic<bool> same = true;
  auto compare = [&] {
    std::vector<float> samples(slice);
    for (auto from = next.fetch_add(slice); from < all && same; from = next.fetch_add(slice)) {
      for (std::uint64_t i = 0; i < slice; ++i) {
        samples[i] = std::bit_cast<float>(static_cast<std::uint32_t>(from + i));
      }
      if (PCMChunker::encode(samples) != test::plainEncode(samples)) same = false;
    }
  };
  std::vector<std::jthread> workers;
  for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i)
    workers.emplace_back(compare);
  workers.clear();
  return same;
}

bool sameForEveryWireSample() {
  platform::Data bytes(2UL * 65536 + 1); // the last byte is half a sample
  for (std::size_t i = 0; i < 65536; ++i) {
    bytes[2 * i] = static_cast<std::byte>(i & 0xFF);
    bytes[2 * i + 1] = static_cast<std::byte>(i >> 8);
  }
  const auto ours = PCMChunker::decode(bytes);
  const auto plain = plainDecode(bytes);
  return ours.size() == plain.size() && std::memcmp(ours.data(), plain.data(), 4 * plain.size()) == 0;
}

// Nanoseconds of one call. The median of many rounds leaves interruptions of the machine out.
template<typename Call>
double timed(Call call) {
  constexpr int rounds = 401;
  constexpr int callsPerRound = 200;
  std::vector<double> costs;
  for (int round = 0; round < rounds; ++round) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < callsPerRound; ++i) {
      const auto result = call();
      asm volatile("" : : "g"(result.data()) : "memory");
    }
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - begin;
    costs.push_back(spent.count() / callsPerRound);
  }
  std::ranges::nth_element(costs, costs.begin() + rounds / 2);
  return costs[rounds / 2];
}

template<typename Plain, typename Ours>
void compare(const char* name, Plain plain, Ours ours) {
  const double plainCost = timed(plain);
  const double ourCost = timed(ours);
  std::printf("%-34s plain %8.0f ns   ours %7.0f ns   ratio %5.1f\n", name, plainCost, ourCost,
              plainCost / ourCost);
}

void allocationsPerChunk(std::size_t blockSize) {
  std::vector<float> block(blockSize, 0.25F);
  PCMChunker chunker;
  chunker.push(block);
  constexpr std::size_t seconds = 60;
  std::size_t chunks = 0;
  const long before = allocations;
  for (std::size_t sent = 0; sent < seconds * PCMChunker::sampleRate; sent += blockSize) {
    chunks += chunker.push(block).size();
  }
  const long made = allocations - before;
  std::printf("push, blocks of %5zu samples         %zu chunks, %ld allocations, %.3f each\n", blockSize,
              chunks, made, static_cast<double>(made) / static_cast<double>(chunks));
}

} // namespace

int main() {
  std::puts("comparing encode on all 4,294,967,296 floats and decode on all 65,536 samples ...");
  const auto begin = std::chrono::steady_clock::now();
  if (!sameForEveryFloat() || !sameForEveryWireSample()) {
    std::puts("DIFFERENT");
    return 1;
  }
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
  std::printf("the same, bit for bit (%.1f s)\n\n", spent.count());

  std::vector<float> speech(PCMChunker::samplesPerChunk);
  std::vector<float> hum(PCMChunker::samplesPerChunk);
  unsigned noise = 1;
  for (std::size_t i = 0; i < speech.size(); ++i) {
    noise = noise * 1664525U + 1013904223U;
    speech[i] = static_cast<float>(noise >> 8) / 8388608.0F - 1.0F;
    hum[i] = 0.3F * std::sin(static_cast<float>(i) * 0.0196F); // the branch predictor's best case
  }
  const auto wire = PCMChunker::encode(speech);
  compare(
      "encode, 100 ms, signs at random", [&] { return test::plainEncode(speech); },
      [&] { return PCMChunker::encode(speech); });
  compare(
      "encode, 100 ms, a 50 Hz hum", [&] { return test::plainEncode(hum); },
      [&] { return PCMChunker::encode(hum); });
  compare("decode, 100 ms", [&] { return plainDecode(wire); }, [&] { return PCMChunker::decode(wire); });
  std::puts("");
  for (const std::size_t blockSize : {160U, 341U, 512U, 1600U, 4000U}) allocationsPerChunk(blockSize);
  return 0;
}
