#include "backends/nc/predicted_header.h"

#include <algorithm>
#include <cstring>

#include "backends/io/endian.h"
#include "backends/nc/keys.h"

namespace kelsdk::nc {
namespace {

constexpr std::uint8_t kOnGrid = 1;

}  // namespace

std::uint8_t* StorePredictedHeader(const PredictedHeader& header, const KeyRule& rule,
                                   const Predictions& predictions, std::uint8_t* out) {
  std::memset(out, 0, kPredictedHeaderSize);
  out[0] = kPredictedForm;
  out[1] = header.depth;
  out[2] = rule.shift;
  out[3] = rule.step != 0 ? kOnGrid : 0;
  io::StoreLittle(out + 4, header.baseDistance);
  io::StoreLittle(out + 8, header.baseStoredSize);
  std::copy(predictions.begin(), predictions.end(), out + 12);
  out += kPredictedHeaderSize;
  if (rule.step == 0) return out;
  io::StoreLittle(out, rule.step);
  return out + sizeof rule.step;
}

bool LoadPredictedHeader(io::ByteReader& in, PredictedHeader* header, KeyRule* rule,
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

bool IsSoundFor(EType type, const PredictedHeader& header, const KeyRule& rule,
                const Predictions& predictions) {
  for (const std::uint8_t prediction : predictions) {
    if (prediction >= kPredictions || (prediction & kOrderMask) > kHighestOrder) return false;
    if ((prediction & kFromBase) != 0 && !header.HasBase()) return false;
  }
  return rule.shift < 8 * WordSize(type) &&
         (rule.step == 0 || (rule.shift == 0 && !IsInteger(type)));
}

}  // namespace kelsdk::nc
