#include "backends/nc/predicted.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

#include "backends/nc/format.h"
#include "backends/nc/grid.h"

// Compiled once more for the vectors that most machines have, and chosen when it runs. All that is
// called is taken into these functions, so that nothing of it is left for machines without them.
#if !defined(__x86_64__)
#define KEL_WITH_AVX2
#elif defined(__clang__)  // which cannot be asked for lzcnt
#define KEL_WITH_AVX2 [[gnu::flatten, gnu::target("avx2,bmi,bmi2,popcnt")]]
#else
#define KEL_WITH_AVX2 [[gnu::flatten, gnu::target("avx2,bmi,bmi2,popcnt,lzcnt")]]
#endif

namespace kelsdk::nc {
namespace {

using io::Error;

// So many elements are handled at a time and stay in the nearest cache.
constexpr std::size_t kChunk = 1024;

bool HasAvx2() {
#if !defined(__x86_64__)
  return false;
#else
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
         __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt")
#if !defined(__clang__)
         && __builtin_cpu_supports("lzcnt")
#endif
      ;
#endif
}

template <typename Word>
const Word* WordsOf(const ArrayKeys& keys) {
  return reinterpret_cast<const Word*>(keys.words.data());
}
template <typename Word>
Word* WordsOf(ArrayKeys* keys) {
  return reinterpret_cast<Word*>(keys->words.data());
}

// Calls `use` with the rule for values of a type.
template <typename Use>
auto WithRule(EType type, const KeyRule& rule, Use&& use) {
  if (IsInteger(type)) return use(IntegerKeys{rule.shift});
  if (WordSize(type) == sizeof(float)) {
    if (rule.step != 0) return use(GridKeys<float>{rule.step});
    return use(RealKeys<std::uint32_t>{rule.shift});
  }
  if (rule.step != 0) return use(GridKeys<double>{rule.step});
  return use(RealKeys<std::uint64_t>{rule.shift});
}

// Keys of an array by component.
template <typename Rule, typename Word = typename Rule::Word>
void MakeKeys(const Rule& rule, const Word* array, std::size_t count, std::size_t components,
              Word* keys) {
  for (std::size_t at = 0; at < count; at += kChunk) {
    const std::size_t used = std::min(kChunk, count - at);
    for (std::size_t c = 0; c < components; ++c) {
      const Word* const from = array + at * components + c;
      Word* const to = keys + c * count + at;
      for (std::size_t i = 0; i < used; ++i) to[i] = rule.ToKey(from[i * components]);
    }
  }
}

// Words by component, so many apart, to elements.
template <typename Word>
void Interleave(const Word* words, std::size_t apart, std::size_t count, std::size_t components,
                Word* array) {
  if (components == 1) {
    std::copy_n(words, count, array);
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t c = 0; c < kMostComponents; ++c) {
      array[i * kMostComponents + c] = words[c * apart + i];
    }
  }
}

// Words of 64 bits are packed in halves, the low ones of a group before the high ones. Behind the
// last number there is room for a whole group.
template <typename Word>
std::uint8_t* Pack(Word* numbers, std::size_t count, std::uint8_t* out) {
  std::fill_n(numbers + count, kGroupSize, Word{0});
  for (std::size_t at = 0; at < count; at += kGroupSize) {
    const std::size_t used = std::min(kGroupSize, count - at);
    if constexpr (sizeof(Word) == sizeof(std::uint32_t)) {
      out = PackGroup(numbers + at, used, out);
    } else {
      for (const unsigned int half : {0U, 32U}) {
        std::uint32_t group[kGroupSize];
        for (std::size_t i = 0; i < kGroupSize; ++i) {
          group[i] = static_cast<std::uint32_t>(numbers[at + i] >> half);
        }
        out = PackGroup(group, used, out);
      }
    }
  }
  return out;
}

template <typename Word>
const std::uint8_t* Unpack(const std::uint8_t* in, const std::uint8_t* end, std::size_t count,
                           Word* numbers) {
  for (std::size_t at = 0; at < count && in != nullptr; at += kGroupSize) {
    const std::size_t used = std::min(kGroupSize, count - at);
    if constexpr (sizeof(Word) == sizeof(std::uint32_t)) {
      in = UnpackGroup(in, end, used, numbers + at);
    } else {
      std::uint32_t low[kGroupSize];
      std::uint32_t high[kGroupSize];
      in = UnpackGroup(in, end, used, low);
      if (in != nullptr) in = UnpackGroup(in, end, used, high);
      if (in == nullptr) break;
      for (std::size_t i = 0; i < kGroupSize; ++i) {
        numbers[at + i] = low[i] | std::uint64_t{high[i]} << 32;
      }
    }
  }
  return in;
}

std::size_t MostBytes(std::size_t wordCount, std::size_t wordSize) {
  const std::size_t halves = wordSize / sizeof(std::uint32_t);
  const std::size_t groups = wordCount / kGroupSize + kMostComponents;
  return kPredictedHeaderSize + sizeof(double) + kMostComponents * wordSize +
         groups * halves * kMostGroupBytes + kPackSlack;
}

template <typename Word>
std::uint8_t* EncodeKeys(const Word* keys, const Word* base, std::size_t count,
                         std::size_t components, const Predictions& predictions,
                         std::uint8_t* out) {
  const auto baseOf = [&](std::size_t c, std::size_t at) {
    return (predictions[c] & kFromBase) != 0 ? base + c * count + at : nullptr;
  };
  Trail<Word> trails[kMostComponents];
  for (std::size_t c = 0; c < components; ++c) {
    if ((predictions[c] & kOrderMask) == 0) continue;
    Word first = 0;
    Subtract(keys + c * count, baseOf(c, 0), 1, &first);
    io::StoreLittle(out, first);
    out += sizeof first;
    trails[c] = {first, first};
  }
  Word room[kHighestOrder + kChunk + kGroupSize];
  Word* const chunk = room + kHighestOrder;
  for (std::size_t at = 0; at < count; at += kChunk) {
    const std::size_t used = std::min(kChunk, count - at);
    for (std::size_t c = 0; c < components; ++c) {
      Subtract(keys + c * count + at, baseOf(c, at), used, chunk);
      Differentiate<Word>(predictions[c] & kOrderMask, &trails[c], used, chunk);
      out = Pack(chunk, used, out);
    }
  }
  return out;
}

// The parts of a stored form that a decoder works on.
struct Coded {
  const std::uint8_t* begin;
  const std::uint8_t* end;
  std::size_t count;  // elements
  std::size_t components;
  Predictions predictions;
};

template <typename Rule, typename Word = typename Rule::Word>
bool DecodeKeys(const Rule& rule, const Coded& coded, const Word* base, Word* keys, Word* array) {
  const std::uint8_t* in = coded.begin;
  Trail<Word> trails[kMostComponents];
  for (std::size_t c = 0; c < coded.components; ++c) {
    if ((coded.predictions[c] & kOrderMask) == 0) continue;
    if (static_cast<std::size_t>(coded.end - in) < sizeof(Word)) return false;
    const Word first = io::LoadLittle<Word>(in);
    in += sizeof first;
    trails[c] = {first, first};
  }
  Word chunk[kMostComponents * kChunk];
  for (std::size_t at = 0; at < coded.count; at += kChunk) {
    const std::size_t used = std::min(kChunk, coded.count - at);
    for (std::size_t c = 0; c < coded.components; ++c) {
      Word* const numbers = chunk + c * kChunk;
      in = Unpack(in, coded.end, used, numbers);
      if (in == nullptr) return false;
      Integrate<Word>(coded.predictions[c] & kOrderMask, &trails[c], used, numbers);
      const std::size_t from = c * coded.count + at;
      if ((coded.predictions[c] & kFromBase) != 0) {
        for (std::size_t i = 0; i < used; ++i) numbers[i] += base[from + i];
      }
      std::copy_n(numbers, used, keys + from);
      if (array == nullptr) continue;
      for (std::size_t i = 0; i < used; ++i) numbers[i] = rule.ToBits(numbers[i]);
    }
    if (array == nullptr) continue;
    Interleave(chunk, kChunk, used, coded.components, array + at * coded.components);
  }
  return true;
}

bool DecodeAny(EType type, const KeyRule& rule, const Coded& coded, const ArrayKeys* base,
               ArrayKeys* keys, void* array) {
  return WithRule(type, rule, [&](const auto& of) {
    using Word = typename std::decay_t<decltype(of)>::Word;
    return DecodeKeys(of, coded, base != nullptr ? WordsOf<Word>(*base) : nullptr,
                      WordsOf<Word>(keys), static_cast<Word*>(array));
  });
}

KEL_WITH_AVX2 bool DecodeAnyWithAvx2(EType type, const KeyRule& rule, const Coded& coded,
                                     const ArrayKeys* base, ArrayKeys* keys, void* array) {
  return DecodeAny(type, rule, coded, base, keys, array);
}

// The base's keys by another rule.
const ArrayKeys* Rekey(EType type, const ArrayKeys* base, const KeyRule& rule, ArrayKeys* rekeyed) {
  if (base == nullptr || base->rule == rule) return base;
  rekeyed->rule = rule;
  rekeyed->words.resize(base->words.size());
  WithRule(type, base->rule, [&](const auto& from) {
    using Word = typename std::decay_t<decltype(from)>::Word;
    const Word* const keys = WordsOf<Word>(*base);
    Word* const words = WordsOf<Word>(rekeyed);
    const std::size_t count = base->words.size() / sizeof(Word);
    for (std::size_t i = 0; i < count; ++i) words[i] = from.ToBits(keys[i]);
    WithRule(type, rule, [&](const auto& to) {
      if constexpr (sizeof(typename std::decay_t<decltype(to)>::Word) == sizeof(Word)) {
        for (std::size_t i = 0; i < count; ++i) words[i] = to.ToKey(words[i]);
      }
    });
  });
  return rekeyed;
}

template <typename Rule, typename Word = typename Rule::Word>
std::uint8_t* EncodeKeysOf(const Rule& rule, const void* array, std::size_t count,
                           std::size_t components, const KeyRule& ruleStored, const Word* base,
                           PredictedHeader header, Word* keys, std::uint8_t* out) {
  MakeKeys(rule, static_cast<const Word*>(array), count, components, keys);
  Predictions predictions = {};
  bool usesBase = false;
  for (std::size_t c = 0; c < components; ++c) {
    predictions[c] =
        ChoosePrediction(keys + c * count, base != nullptr ? base + c * count : nullptr, count);
    usesBase |= (predictions[c] & kFromBase) != 0;
  }
  if (!usesBase) header.baseDistance = header.baseStoredSize = 0;
  out = StorePredictedHeader(header, ruleStored, predictions, out);
  return EncodeKeys(keys, base, count, components, predictions, out);
}

std::uint8_t* EncodeAny(EType type, const KeyRule& rule, const void* array, std::size_t count,
                        const ArrayKeys* base, const PredictedHeader& header, ArrayKeys* keys,
                        std::uint8_t* out) {
  return WithRule(type, rule, [&](const auto& of) {
    using Word = typename std::decay_t<decltype(of)>::Word;
    return EncodeKeysOf(of, array, count, ElementWidth(type), rule,
                        base != nullptr ? WordsOf<Word>(*base) : nullptr, header,
                        WordsOf<Word>(keys), out);
  });
}

KEL_WITH_AVX2 std::uint8_t* EncodeAnyWithAvx2(EType type, const KeyRule& rule, const void* array,
                                              std::size_t count, const ArrayKeys* base,
                                              const PredictedHeader& header, ArrayKeys* keys,
                                              std::uint8_t* out) {
  return EncodeAny(type, rule, array, count, base, header, keys, out);
}

bool PlaceAny(EType type, const void* array, std::size_t valueCount, double bound, void* moved,
              double* step) {
  return WordSize(type) == sizeof(float)
             ? PlaceOnGrid<float>(array, valueCount, bound, moved, step)
             : PlaceOnGrid<double>(array, valueCount, bound, moved, step);
}

KEL_WITH_AVX2 bool PlaceAnyWithAvx2(EType type, const void* array, std::size_t valueCount,
                                    double bound, void* moved, double* step) {
  return PlaceAny(type, array, valueCount, bound, moved, step);
}

std::uint8_t ZerosOf(EType type, const void* array, std::size_t valueCount) {
  return WordSize(type) == sizeof(float)
             ? CommonZeros(IsInteger(type), static_cast<const std::uint32_t*>(array), valueCount)
             : CommonZeros(false, static_cast<const std::uint64_t*>(array), valueCount);
}

}  // namespace

bool PredictedEncoder::TryGrid(EType type, const void* array, std::size_t valueCount, double bound,
                               KeyRule* rule) {
  if (!(bound > 0) || IsInteger(type)) return false;
  moved_.resize(valueCount * WordSize(type));
  double step = 0;
  const bool placed = (HasAvx2() ? PlaceAnyWithAvx2 : PlaceAny)(type, array, valueCount, bound,
                                                                moved_.data(), &step);
  if (placed) *rule = {0, step};
  return placed;
}

bool PredictedEncoder::Encode(EType type, const void* array, std::uint32_t elementCount,
                              const ArrayKeys* base, double bound, PredictedHeader header,
                              ArrayKeys* keys) {
  const auto size = static_cast<std::size_t>(ArraySize(type, elementCount));
  const std::size_t wordSize = WordSize(type);
  const std::size_t valueCount = std::size_t{elementCount} * ElementWidth(type);
  keys->words.resize(size);
  keys->rule = KeyRule();
  decoded_ = array;
  storedSize_ = 0;
  if (elementCount == 0) return false;
  KeyRule& rule = keys->rule;
  if (TryGrid(type, array, valueCount, bound, &rule)) {
    decoded_ = moved_.data();
  } else {
    rule.shift = ZerosOf(type, array, valueCount);
    if (base != nullptr) rule.shift = std::min(rule.shift, base->rule.shift);
  }
  const ArrayKeys* const from = Rekey(type, base, rule, &rekeyed_);
  const std::size_t most = MostBytes(valueCount, wordSize);
  if (stored_.size() < most) stored_.resize(most);
  std::uint8_t* const begin = stored_.data();
  const std::uint8_t* const end = (HasAvx2() ? EncodeAnyWithAvx2 : EncodeAny)(
      type, rule, array, elementCount, from, header, keys, begin);
  storedSize_ = static_cast<std::size_t>(end - begin);
  const std::size_t least = size / kBestCompression;
  if (storedSize_ < least) {
    std::memset(begin + storedSize_, 0, least - storedSize_);
    storedSize_ = least;
  }
  if (storedSize_ < size) return true;
  KeysOfRaw(type, decoded_, elementCount, keys);  // as a reader has them
  return false;
}

bool PredictedDecoder::Decode(EType type, std::span<const std::uint8_t> stored,
                              std::uint32_t elementCount, const ArrayKeys* base, void* array,
                              ArrayKeys* keys, Error& error) {
  const auto size = static_cast<std::size_t>(ArraySize(type, elementCount));
  keys->words.resize(size);
  io::ByteReader in(stored.data(), stored.size());
  PredictedHeader header;
  Coded coded = {};
  if (LoadPredictedHeader(in, &header, &keys->rule, &coded.predictions) &&
      IsSoundFor(type, header, keys->rule, coded.predictions) &&
      (!header.HasBase() || (base != nullptr && base->words.size() == size))) {
    coded.begin = stored.data() + in.Position();
    coded.end = stored.data() + stored.size();
    coded.count = elementCount;
    coded.components = ElementWidth(type);
    const ArrayKeys* const from =
        Rekey(type, header.HasBase() ? base : nullptr, keys->rule, &rekeyed_);
    const bool decoded =
        (HasAvx2() ? DecodeAnyWithAvx2 : DecodeAny)(type, keys->rule, coded, from, keys, array);
    if (decoded) return true;
  }
  return error.Set(Error::eDamaged, "%zu bytes do not decode to %u elements", stored.size(),
                   elementCount);
}

void KeysOfRaw(EType type, const void* array, std::uint32_t elementCount, ArrayKeys* keys) {
  const auto size = static_cast<std::size_t>(ArraySize(type, elementCount));
  keys->words.resize(size);
  keys->rule = {ZerosOf(type, array, std::size_t{elementCount} * ElementWidth(type)), 0};
  WithRule(type, keys->rule, [&](const auto& of) {
    using Word = typename std::decay_t<decltype(of)>::Word;
    MakeKeys(of, static_cast<const Word*>(array), elementCount, ElementWidth(type),
             WordsOf<Word>(keys));
  });
}

void ArrayOfKeys(EType type, const ArrayKeys& keys, std::uint32_t elementCount, void* array) {
  WithRule(type, keys.rule, [&](const auto& of) {
    using Word = typename std::decay_t<decltype(of)>::Word;
    const std::size_t components = ElementWidth(type);
    const Word* const from = WordsOf<Word>(keys);
    auto* const to = static_cast<Word*>(array);
    for (std::size_t c = 0; c < components; ++c) {
      for (std::size_t i = 0; i < elementCount; ++i) {
        to[i * components + c] = of.ToBits(from[c * elementCount + i]);
      }
    }
  });
}

}  // namespace kelsdk::nc
