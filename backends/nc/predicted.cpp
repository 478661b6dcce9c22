#include "backends/nc/predicted.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

#include "backends/io/byte_reader.h"
#include "backends/nc/format.h"
#include "backends/nc/keys.h"

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

constexpr std::size_t kMostComponents = 3;

// So many elements are handled at a time and stay in the nearest cache.
constexpr std::size_t kChunk = 1024;

// How a component's keys are predicted: from so many keys before them, and from the base's key of
// the same element or not.
constexpr std::uint8_t kOrderMask = 3;
constexpr std::uint8_t kHighestOrder = 2;
constexpr std::uint8_t kFromBase = 4;
constexpr std::uint8_t kPredictions = 8;

constexpr std::size_t kHeaderSize = 16;
constexpr std::uint8_t kOnGrid = 1;

using Predictions = std::array<std::uint8_t, kMostComponents>;

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

bool IsInteger(EType type) {
  return type == zuCacheData::eNCInt32Array;
}

std::size_t WordSizeOf(EType type) {
  return ElementSize(type) / std::max<std::size_t>(ElementWidth(type), 1);
}

// Calls `use` with the rule for values of a type.
template <typename Use>
auto WithRule(EType type, const KeyRule& rule, Use&& use) {
  if (IsInteger(type)) return use(IntegerKeys{rule.shift});
  if (WordSizeOf(type) == sizeof(float)) {
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

// -- Differences ---------------------------------------------------------------------------------

// The last two keys of a component, for what follows.
template <typename Word>
struct Trail {
  Word last = 0;
  Word lastButOne = 0;
};

// Replaces keys, with room for two before them, by the numbers that are stored.
template <typename Word>
void Differentiate(unsigned int order, Trail<Word>* trail, std::size_t count, Word* keys) {
  keys[-1] = trail->last;
  keys[-2] = trail->lastButOne;
  *trail = {keys[count - 1], keys[static_cast<std::ptrdiff_t>(count) - 2]};
  if (order == 0) {
    for (std::size_t i = 0; i < count; ++i) keys[i] = ZigZag(keys[i]);
  } else if (order == 1) {
    for (Word* key = keys + count; key-- > keys;) *key = ZigZag<Word>(key[0] - key[-1]);
  } else {
    for (Word* key = keys + count; key-- > keys;) {
      *key = ZigZag<Word>(key[0] - 2 * key[-1] + key[-2]);
    }
  }
}

template <typename Word>
void Integrate(unsigned int order, Trail<Word>* trail, std::size_t count, Word* numbers) {
  for (std::size_t i = 0; i < count; ++i) numbers[i] = UnZigZag(numbers[i]);
  Word last = trail->last;
  Word slope = last - trail->lastButOne;
  if (order == 1) {
    for (std::size_t i = 0; i < count; ++i) {
      slope = numbers[i];
      last += slope;
      numbers[i] = last;
    }
  } else if (order == 2) {
    for (std::size_t i = 0; i < count; ++i) {
      slope += numbers[i];
      last += slope;
      numbers[i] = last;
    }
  }
  *trail = {last, last - slope};
}

// -- Prediction ----------------------------------------------------------------------------------

template <typename Word>
void Subtract(const Word* keys, const Word* base, std::size_t count, Word* differences) {
  if (base == nullptr) {
    std::copy_n(keys, count, differences);
  } else {
    for (std::size_t i = 0; i < count; ++i) differences[i] = keys[i] - base[i];
  }
}

// About the bits that a number takes: it only tells which prediction leaves fewer.
std::uint32_t BitsOf(std::uint32_t difference) {
  const std::uint32_t size = difference ^ (0 - (difference >> 31));
  // The exponent, which vectors have for nothing.
  return std::bit_cast<std::uint32_t>(static_cast<float>(static_cast<std::int32_t>(size)) + 1) >>
         23;
}
std::uint32_t BitsOf(std::uint64_t difference) {
  return static_cast<std::uint32_t>(std::bit_width(ZigZag(difference)));
}

// The prediction that leaves the fewest bits in some groups that stand for all.
template <typename Word>
std::uint8_t ChoosePrediction(const Word* keys, const Word* base, std::size_t count) {
  constexpr std::size_t kSamples = 32;
  constexpr std::size_t kSpan = kHighestOrder + kGroupSize;
  const std::size_t stride = std::max(kGroupSize, count / kSamples);
  std::uint32_t bits[kPredictions] = {};
  for (std::size_t at = 0; at == 0 || at + kSpan <= count; at += stride) {
    const std::size_t used = std::min(kSpan, count - at);
    for (const std::uint8_t from : {std::uint8_t{0}, kFromBase}) {
      if (from != 0 && base == nullptr) continue;
      Word taken[kSpan];
      Subtract(keys + at, from != 0 ? base + at : nullptr, used, taken);
      for (std::size_t i = kHighestOrder; i < used; ++i) {
        bits[from] += BitsOf(taken[i]);
        bits[from + 1] += BitsOf(taken[i] - taken[i - 1]);
        bits[from + 2] += BitsOf(taken[i] - 2 * taken[i - 1] + taken[i - 2]);
      }
    }
  }
  std::uint8_t best = 0;
  for (std::uint8_t i = 1; i < kPredictions; ++i) {
    const bool exists = (i & kOrderMask) <= kHighestOrder && (i < kFromBase || base != nullptr);
    if (exists && bits[i] < bits[best]) best = i;
  }
  return best;
}

// -- Packing -------------------------------------------------------------------------------------

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
  return kHeaderSize + sizeof(double) + kMostComponents * wordSize +
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

// -- Choosing keys -------------------------------------------------------------------------------

// The lowest bits that are zero in all values.
template <typename Word>
std::uint8_t CommonZeros(bool isInteger, const Word* values, std::size_t count) {
  Word any = 0;
  for (std::size_t i = 0; i < count; ++i) any |= values[i];
  if (!isInteger) any = any << 1 >> 1;
  return static_cast<std::uint8_t>(std::min<int>(std::countr_zero(any), kBits<Word> - 1));
}

// The step of a grid that keeps all values within the bound when they are rounded to their own
// type as well; 0 where there is none. The same for all values up to a power of two.
template <typename Real>
double ChooseStep(const Real* values, std::size_t count, double bound) {
  using Word = typename GridKeys<Real>::Word;
  constexpr double kRounding = sizeof(Real) == sizeof(float) ? 0x1p-23 : 0x1p-51;
  // Sizes compare like their bits, and whatever is no number is above all.
  Word largestBits = 0;
  for (std::size_t i = 0; i < count; ++i) {
    largestBits = std::max<Word>(largestBits, std::bit_cast<Word>(values[i]) << 1 >> 1);
  }
  const auto largest = static_cast<double>(std::bit_cast<Real>(largestBits));
  double part = 0x1p-10;  // of the bound, left to rounding
  while (part < 1 && bound * part < largest * kRounding) part *= 2;
  const double step = 2 * bound * (1 - part);
  const bool serves = step > 0 && step <= GridKeys<Real>::kLargestStep &&
                      largest <= step * GridKeys<Real>::kLargestKey;
  return serves ? step : 0;
}

// Moves values onto a grid; false where one would leave the bound.
template <typename Real>
bool MoveToGrid(const GridKeys<Real>& grid, double bound, const Real* values, std::size_t count,
                Real* moved) {
  using Word = typename GridKeys<Real>::Word;  // as wide as a value, for vectors
  Word beyond = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto value = static_cast<double>(values[i]);
    moved[i] = grid.Nearest(value);
    beyond |= std::fabs(static_cast<double>(moved[i]) - value) > bound ? Word{1} : Word{0};
  }
  return beyond == 0;
}

template <typename Real>
bool PlaceOnGrid(const void* array, std::size_t valueCount, double bound, void* moved,
                 double* step) {
  const auto* const values = static_cast<const Real*>(array);
  *step = ChooseStep(values, valueCount, bound);
  return *step != 0 &&
         MoveToGrid(GridKeys<Real>{*step}, bound, values, valueCount, static_cast<Real*>(moved));
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

// -- Header --------------------------------------------------------------------------------------

std::uint8_t* StoreHeader(const PredictedHeader& header, const KeyRule& rule,
                          const Predictions& predictions, std::uint8_t* out) {
  std::memset(out, 0, kHeaderSize);
  out[0] = kPredictedForm;
  out[1] = header.depth;
  out[2] = rule.shift;
  out[3] = rule.step != 0 ? kOnGrid : 0;
  io::StoreLittle(out + 4, header.baseDistance);
  io::StoreLittle(out + 8, header.baseStoredSize);
  std::copy(predictions.begin(), predictions.end(), out + 12);
  out += kHeaderSize;
  if (rule.step == 0) return out;
  io::StoreLittle(out, rule.step);
  return out + sizeof rule.step;
}

bool LoadHeader(io::ByteReader& in, PredictedHeader* header, KeyRule* rule,
                Predictions* predictions) {
  const bool isForm = in.U8() == kPredictedForm;
  header->depth = in.U8();
  rule->shift = in.U8();
  const std::uint8_t flags = in.U8();
  header->baseDistance = in.U32();
  header->baseStoredSize = in.U32();
  for (std::uint8_t& prediction : *predictions) prediction = in.U8();
  const bool isZero = in.U8() == 0;
  rule->step = flags == kOnGrid ? in.F64() : 0;
  return in.Ok() && isForm && isZero && flags <= kOnGrid && header->depth <= kDeepestBase &&
         (header->HasBase() ? header->depth > 0 : header->baseStoredSize == 0) &&
         (flags == 0 || (rule->step > 0 && rule->step <= GridKeys<float>::kLargestStep));
}

bool IsSound(EType type, const PredictedHeader& header, const KeyRule& rule,
             const Predictions& predictions) {
  for (const std::uint8_t prediction : predictions) {
    if (prediction >= kPredictions || (prediction & kOrderMask) > kHighestOrder) return false;
    if ((prediction & kFromBase) != 0 && !header.HasBase()) return false;
  }
  return rule.shift < 8 * WordSizeOf(type) &&
         (rule.step == 0 || (rule.shift == 0 && !IsInteger(type)));
}

// -- An array ------------------------------------------------------------------------------------

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
  out = StoreHeader(header, ruleStored, predictions, out);
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
  return WordSizeOf(type) == sizeof(float)
             ? PlaceOnGrid<float>(array, valueCount, bound, moved, step)
             : PlaceOnGrid<double>(array, valueCount, bound, moved, step);
}

KEL_WITH_AVX2 bool PlaceAnyWithAvx2(EType type, const void* array, std::size_t valueCount,
                                    double bound, void* moved, double* step) {
  return PlaceAny(type, array, valueCount, bound, moved, step);
}

std::uint8_t ZerosOf(EType type, const void* array, std::size_t valueCount) {
  return WordSizeOf(type) == sizeof(float)
             ? CommonZeros(IsInteger(type), static_cast<const std::uint32_t*>(array), valueCount)
             : CommonZeros(false, static_cast<const std::uint64_t*>(array), valueCount);
}

}  // namespace

bool PredictedEncoder::TryGrid(EType type, const void* array, std::size_t valueCount, double bound,
                               KeyRule* rule) {
  if (!(bound > 0) || IsInteger(type)) return false;
  moved_.resize(valueCount * WordSizeOf(type));
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
  const std::size_t wordSize = WordSizeOf(type);
  keys->words.resize(size);
  keys->rule = KeyRule();
  decoded_ = array;
  storedSize_ = 0;
  if (elementCount == 0) return false;
  KeyRule& rule = keys->rule;
  if (TryGrid(type, array, size / wordSize, bound, &rule)) {
    decoded_ = moved_.data();
  } else {
    rule.shift = ZerosOf(type, array, size / wordSize);
    if (base != nullptr) rule.shift = std::min(rule.shift, base->rule.shift);
  }
  const ArrayKeys* const from = Rekey(type, base, rule, &rekeyed_);
  const std::size_t most = MostBytes(size / wordSize, wordSize);
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
  return storedSize_ < size;
}

bool LoadPredictedHeader(std::span<const std::uint8_t> stored, PredictedHeader* header,
                         Error& error) {
  io::ByteReader in(stored.data(), stored.size());
  KeyRule rule;
  Predictions predictions;
  if (LoadHeader(in, header, &rule, &predictions)) return true;
  return error.Set(Error::eDamaged, "an array in a compact form that is not served");
}

bool PredictedDecoder::Decode(EType type, std::span<const std::uint8_t> stored,
                              std::uint32_t elementCount, const ArrayKeys* base, void* array,
                              ArrayKeys* keys, Error& error) {
  const auto size = static_cast<std::size_t>(ArraySize(type, elementCount));
  keys->words.resize(size);
  io::ByteReader in(stored.data(), stored.size());
  PredictedHeader header;
  Coded coded = {};
  if (LoadHeader(in, &header, &keys->rule, &coded.predictions) &&
      IsSound(type, header, keys->rule, coded.predictions) &&
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
  keys->rule = {ZerosOf(type, array, size / WordSizeOf(type)), 0};
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
