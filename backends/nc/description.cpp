#include "backends/nc/description.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <pugixml.hpp>
#include <utility>

#include "backends/io/input_file.h"
#include "backends/nc/attributes.h"
#include "backends/nc/names.h"

namespace kelsdk::nc {
namespace {

// Beyond any cache of ours, and what a parse may take is a small multiple of it.
constexpr std::uint64_t kLargestDescription = 256u << 20;
constexpr int kDeepestNesting = 8;

// Only what we write: elements, attributes, text; a document type is kept so that it can be
// refused, and no entity but the five of XML itself and character numbers is ever replaced.
constexpr unsigned int kParseOptions =
    pugi::parse_cdata | pugi::parse_escapes | pugi::parse_doctype | pugi::parse_eol;

// Where a tag that begins at `position` ends: not with what stands in its attributes' quotes.
std::size_t EndOfTag(std::string_view text, std::size_t position) {
  char quote = 0;
  for (std::size_t at = position; at < text.size(); ++at) {
    const char c = text[at];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return at + 1;
    }
  }
  return std::string_view::npos;
}

// Where a comment, instruction, section or tag that begins at `position` ends.
std::size_t EndOfMarkup(std::string_view text, std::size_t position) {
  constexpr std::pair<std::string_view, std::string_view> kOthers[] = {
      {"<!--", "-->"}, {"<?", "?>"}, {"<![CDATA[", "]]>"}, {"<!", ">"}};
  for (const auto& [opening, closing] : kOthers) {
    if (!text.substr(position).starts_with(opening)) continue;
    const std::size_t end = text.find(closing, position);
    return end == std::string_view::npos ? end : end + closing.size();
  }
  return EndOfTag(text, position);
}

// A tree of a million levels costs the parser memory; ours have three.
bool NestingIsShallow(std::string_view text, io::Error& error) {
  int depth = 0;
  for (std::size_t at = text.find('<'); at != std::string_view::npos;) {
    const std::size_t end = EndOfMarkup(text, at);
    if (end == std::string_view::npos) break;
    const char kind = text[at + 1];
    if (kind == '/') {
      --depth;
    } else if (kind != '!' && kind != '?' && text[end - 2] != '/') {
      ++depth;
    }
    if (depth > kDeepestNesting) {
      return error.Set(io::Error::eDamaged, "the description nests elements more than %d deep",
                       kDeepestNesting);
    }
    at = text.find('<', end);
  }
  return true;
}

bool ReadTimes(const pugi::xml_node& node, TimeRuns* times, io::Error& error) {
  const char* next = node.child_value();
  const char* const end = next + std::strlen(next);
  while (NextWord(&next, end)) {
    std::int32_t start = 0;
    std::uint32_t step = 0;
    std::uint32_t count = 1;
    const char* const word = next;
    bool sound = TakeNumber(&next, end, &start);
    if (sound && next != end && *next == ':') {
      sound = TakeNumber(&++next, end, &step) && next != end && *next == ':' &&
              TakeNumber(&++next, end, &count);
    }
    if (!sound || !AtWordEnd(next, end) || !times->Append(start, step, count)) {
      return error.Set(io::Error::eDamaged, "times that do not ascend: \"%.32s\"", word);
    }
  }
  return true;
}

bool ReadChannel(const pugi::xml_node& node, Description* description, io::Error& error) {
  Attributes attributes(node, error);
  const char* name = attributes.Text("name");
  const char* interpretation = attributes.Text("interpretation");
  const char* type = attributes.Text("type");
  Channel channel;
  channel.interval = attributes.OptionalNumber<std::uint32_t>("interval", 0);
  channel.maximumError = attributes.OptionalNumber<double>("maximumError", 0);
  if (!attributes.Done()) return false;
  if (!CheckChannelTexts(name, interpretation, error)) return false;
  std::uint32_t number = 0;
  while (number < kElementTypeCount && std::strcmp(kElementTypes[number].name, type) != 0) ++number;
  if (!IsElementType(number)) {
    return error.Set(io::Error::eUnsupported, "unknown element type \"%.64s\"", type);
  }
  channel.name = name;
  channel.interpretation = interpretation;
  channel.type = static_cast<EType>(number);
  if (node.attribute("maximumError") &&
      !CheckMaximumError(*description, channel.type, channel.maximumError, error)) {
    return false;
  }
  for (const pugi::xml_node& child : node.children()) {
    if (std::strcmp(child.name(), "times") != 0 || channel.hasOwnTimes ||
        !description->isPerFrame || child.first_attribute()) {
      return error.Set(io::Error::eDamaged, "unexpected <%.64s> in a channel", child.name());
    }
    channel.hasOwnTimes = true;
    if (!ReadTimes(child, &channel.times, error)) return false;
  }
  description->channels.push_back(std::move(channel));
  return true;
}

bool ReadExactRate(const char* text, Description* description) {
  const char* const end = text + std::strlen(text);
  KelFrameRate& rate = description->exactRate;
  return TakeNumber(&text, end, &rate.numerator) && text != end && *text++ == '/' &&
         TakeNumber(&text, end, &rate.denominator) && text == end &&
         IsRateOfTicks(rate, description->ticksPerFrame);
}

bool ReadRootAttributes(const pugi::xml_node& root, Description* description, io::Error& error) {
  Attributes attributes(root, error);
  const auto version = attributes.Number<std::uint32_t>("version");
  if (version && *version != kFormatVersion) {
    return error.Set(io::Error::eUnsupported, "description of version %u, only %u is served",
                     *version, kFormatVersion);
  }
  const char* const identity = attributes.Text("identity");
  const char* const replaced = attributes.OptionalText("replaces");
  description->created = attributes.OptionalNumber<std::uint64_t>("created", 0);
  description->isPerFrame = attributes.Choice("layout", "single", "perFrame");
  const bool isCompact = attributes.Choice("data", "ncx", "ncc");
  const auto encoding = attributes.OptionalNumber<std::uint32_t>("encoding", isCompact ? 1 : 0);
  const auto ticksPerFrame = attributes.Number<std::int32_t>("ticksPerFrame");
  const char* const exactRate = attributes.OptionalText("frameRate");
  if (!attributes.Done()) return false;
  if (isCompact ? encoding != eBytePlanes && encoding != ePredicted : encoding != eRaw) {
    return error.Set(io::Error::eUnsupported, "arrays of encoding %u", encoding);
  }
  description->encoding = static_cast<EEncoding>(encoding);
  description->ticksPerFrame = *ticksPerFrame;
  if (description->ticksPerFrame < 0) {
    return error.Set(io::Error::eDamaged, "%d ticks per frame", description->ticksPerFrame);
  }
  if (exactRate != nullptr && !ReadExactRate(exactRate, description)) {
    return error.Set(io::Error::eDamaged, "the frame rate \"%.32s\" is none of %d ticks per frame",
                     exactRate, description->ticksPerFrame);
  }
  const auto own = ParseIdentity(identity);
  const auto earlier = replaced != nullptr ? ParseIdentity(replaced) : Identity{};
  if (!own || !earlier) return error.Set(io::Error::eDamaged, "an identity is not 32 hex digits");
  description->identity = *own;
  description->replaced = *earlier;
  return true;
}

bool NamesDiffer(const std::vector<Channel>& channels, io::Error& error) {
  std::vector<std::string_view> names;
  names.reserve(channels.size());
  for (const Channel& channel : channels) names.emplace_back(channel.name);
  std::sort(names.begin(), names.end());
  const auto twice = std::adjacent_find(names.begin(), names.end());
  if (twice == names.end()) return true;
  return error.Set(io::Error::eDamaged, "there are two channels \"%.64s\"", twice->data());
}

bool ReadRoot(const pugi::xml_node& root, Description* description, io::Error& error) {
  if (!ReadRootAttributes(root, description, error)) return false;
  bool hasTimes = false;
  for (const pugi::xml_node& child : root.children()) {
    if (std::strcmp(child.name(), "channel") == 0) {
      if (!ReadChannel(child, description, error)) return false;
    } else if (std::strcmp(child.name(), "times") == 0 && description->isPerFrame && !hasTimes &&
               !child.first_attribute()) {
      hasTimes = true;
      if (!ReadTimes(child, &description->times, error)) return false;
    } else {
      return error.Set(io::Error::eDamaged, "unexpected <%.64s> in the description", child.name());
    }
  }
  if (hasTimes == description->isPerFrame) return NamesDiffer(description->channels, error);
  return error.Set(io::Error::eDamaged, "the description lacks the times of its files");
}

void WriteTimes(pugi::xml_node parent, const TimeRuns& times) {
  std::string text;
  for (const TimeRuns::Run& run : times.Runs()) {
    if (!text.empty()) text += ' ';
    text.append(std::to_string(run.start));
    if (run.count > 1) {
      text.append(1, ':').append(std::to_string(run.step));
      text.append(1, ':').append(std::to_string(run.count));
    }
  }
  parent.append_child("times").text().set(text.c_str());
}

// As few digits as read back as the same number.
std::string FormatNumber(double number) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

class StringWriter : public pugi::xml_writer {
 public:
  void write(const void* bytes, std::size_t size) override {
    text.append(static_cast<const char*>(bytes), size);
  }
  std::string text;
};

}  // namespace

bool CheckMaximumError(const FileLayout& layout, EType type, double maximumError,
                       io::Error& error) {
  if (layout.encoding != ePredicted || ElementWidth(type) == 0 || IsInteger(type)) {
    return error.Set(io::Error::eRefused,
                     "a maximum error is for real numbers in compact encoding %d", ePredicted);
  }
  if (maximumError > 0 && std::isfinite(maximumError)) return true;
  return error.Set(io::Error::eRefused, "a maximum error of %g", maximumError);
}

bool CheckChannelTexts(const char* name, const char* interpretation, io::Error& error) {
  if (name == nullptr || *name == 0) {
    return error.Set(io::Error::eRefused, "a channel needs a name");
  }
  if (interpretation == nullptr || std::strlen(name) > kLongestText ||
      std::strlen(interpretation) > kLongestText) {
    return error.Set(io::Error::eRefused, "a channel's texts are missing or above %u bytes",
                     kLongestText);
  }
  return true;
}

void DescribeTimes(const Times& files, std::span<const Times> channels, Description* description) {
  for (std::uint32_t i = 0; i < files.Count(); ++i) description->times.Append(files.At(i));
  for (std::size_t i = 0; i < channels.size(); ++i) {
    Channel& channel = description->channels[i];
    // Its samples are among the files, so equal in number means equal.
    channel.hasOwnTimes = channels[i].Count() != files.Count();
    if (!channel.hasOwnTimes) continue;
    for (std::uint32_t k = 0; k < channels[i].Count(); ++k) channel.times.Append(channels[i].At(k));
  }
}

bool ParseDescription(const char* text, std::size_t size, Description* description,
                      io::Error& error) {
  if (!NestingIsShallow({text, size}, error)) return false;
  pugi::xml_document document;
  const pugi::xml_parse_result parsed =
      document.load_buffer(text, size, kParseOptions, pugi::encoding_utf8);
  if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
  if (!parsed) {
    return error.Set(io::Error::eDamaged, "the description is not XML at byte %lld: %s",
                     static_cast<long long>(parsed.offset), parsed.description());
  }
  *description = Description();
  const pugi::xml_node root = document.first_child();
  if (root.next_sibling() || std::strcmp(root.name(), "nccache") != 0) {
    return error.Set(io::Error::eUnsupported, "the XML file describes no NC cache");
  }
  return ReadRoot(root, description, error);
}

bool ReadDescription(const std::string& path, Description* description, io::Error& error) {
  io::InputFile file;
  if (!file.Open(path.c_str(), error)) return false;
  if (file.Size() > kLargestDescription) {
    return error.Set(io::Error::eDamaged, "a description of %llu bytes, at most %llu are served",
                     static_cast<unsigned long long>(file.Size()),
                     static_cast<unsigned long long>(kLargestDescription));
  }
  std::string text(static_cast<std::size_t>(file.Size()), '\0');
  if (!file.ReadAt(0, text.data(), text.size(), error)) return false;
  return ParseDescription(text.data(), text.size(), description, error);
}

std::string FormatDescription(const Description& description) {
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("nccache");
  root.append_attribute("version") = kFormatVersion;
  root.append_attribute("identity") = FormatIdentity(description.identity).c_str();
  if (description.replaced != Identity{}) {
    root.append_attribute("replaces") = FormatIdentity(description.replaced).c_str();
  }
  root.append_attribute("created") = std::to_string(description.created).c_str();
  root.append_attribute("layout") = description.isPerFrame ? "perFrame" : "single";
  root.append_attribute("data") = description.Tag();
  if (description.encoding == ePredicted) root.append_attribute("encoding") = ePredicted;
  root.append_attribute("ticksPerFrame") = description.ticksPerFrame;
  if (description.exactRate.IsValid()) {
    const std::string rate = std::to_string(description.exactRate.numerator) + "/" +
                             std::to_string(description.exactRate.denominator);
    root.append_attribute("frameRate") = rate.c_str();
  }
  for (const Channel& channel : description.channels) {
    pugi::xml_node node = root.append_child("channel");
    node.append_attribute("name") = channel.name.c_str();
    node.append_attribute("interpretation") = channel.interpretation.c_str();
    node.append_attribute("type") = kElementTypes[channel.type].name;
    if (channel.interval != 0) node.append_attribute("interval") = channel.interval;
    if (channel.maximumError != 0) {
      node.append_attribute("maximumError") = FormatNumber(channel.maximumError).c_str();
    }
    if (channel.hasOwnTimes) WriteTimes(node, channel.times);
  }
  if (description.isPerFrame) WriteTimes(root, description.times);
  StringWriter out;
  document.save(out, "  ", pugi::format_indent, pugi::encoding_utf8);
  return out.text;
}

}  // namespace kelsdk::nc
