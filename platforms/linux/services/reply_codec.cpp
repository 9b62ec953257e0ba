// The encoded form of create replies.
//
//   byte 0-1  'I' 'R'
//   byte 2    format version, 1
//   byte 3    number of members
//   byte 4-7  length of everything, in bytes
//   then each member: tag (2 bytes), length (2 bytes), that many bytes
//
// Numbers are little-endian. Members with tags not known here are skipped; a tag that comes twice,
// a length that runs past the end and bytes left over make the whole reply invalid.
#include "lum_linux/create_replies.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <span>

#include "imca.h"

namespace {

constexpr uint8_t magic[2] = {'I', 'R'};
constexpr uint8_t format_version = 1;
constexpr size_t header_size = 8;

constexpr uint16_t tag_ifhandle = 1;     // 4 bytes
constexpr uint16_t tag_description = 2;  // text without a NUL
constexpr size_t longest_description = 1024;

// Presence bits of a decoded record.
constexpr uint32_t has_ifhandle = 1u << 0;
constexpr uint32_t has_description = 1u << 1;
constexpr uint32_t required = has_ifhandle;

using bytes = std::span<const uint8_t>;

// Reads numbers and spans from the front of bytes; once something is missing, everything after it
// is missing too.
class byte_reader {
 public:
  explicit byte_reader(bytes rest) : rest_(rest) {}

  std::optional<bytes> take(size_t count) {
    if (failed_ || count > rest_.size()) {
      failed_ = true;
      return std::nullopt;
    }
    const bytes taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  std::optional<uint32_t> number(size_t width) {
    const auto taken = take(width);
    if (!taken) return std::nullopt;
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) value |= static_cast<uint32_t>((*taken)[i]) << 8 * i;
    return value;
  }

  bool at_end() const { return !failed_ && rest_.empty(); }

 private:
  bytes rest_;
  bool failed_ = false;
};

// A reply that has been checked but not copied out of its bytes.
struct checked_reply {
  uint32_t members = 0;
  uint32_t ifhandle = 0;
  bytes description;
};

bool read_member(checked_reply &reply, uint32_t tag, bytes value) {
  switch (tag) {
    case tag_ifhandle: {
      if ((reply.members & has_ifhandle) != 0 || value.size() != sizeof reply.ifhandle)
        return false;
      reply.ifhandle = *byte_reader(value).number(sizeof reply.ifhandle);
      reply.members |= has_ifhandle;
      return true;
    }
    case tag_description: {
      if ((reply.members & has_description) != 0 || value.size() > longest_description)
        return false;
      if (std::find(value.begin(), value.end(), uint8_t{0}) != value.end()) return false;
      reply.description = value;
      reply.members |= has_description;
      return true;
    }
    default:
      return true;
  }
}

std::optional<checked_reply> check(bytes data) {
  byte_reader reader(data);
  const auto mark = reader.take(sizeof magic);
  const auto version = reader.number(1);
  const auto count = reader.number(1);
  const auto length = reader.number(4);
  if (!length || !std::equal(mark->begin(), mark->end(), magic)) return std::nullopt;
  if (*version != format_version || *length != data.size()) return std::nullopt;
  checked_reply reply;
  for (uint32_t i = 0; i < *count; ++i) {
    const auto tag = reader.number(2);
    const auto size = reader.number(2);
    if (!size) return std::nullopt;
    const auto value = reader.take(*size);
    if (!value || !read_member(reply, *tag, *value)) return std::nullopt;
  }
  if (!reader.at_end()) return std::nullopt;
  return reply;
}

void put_number(std::vector<uint8_t> &out, uint32_t value, size_t width) {
  for (size_t i = 0; i < width; ++i) out.push_back(static_cast<uint8_t>(value >> 8 * i));
}

}  // namespace

cerrno wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *allocator) {
  if (decoded == nullptr) return EINVAL;
  *decoded = {};
  if (data == nullptr || allocator == nullptr) return EINVAL;
  if (allocator->allocate == nullptr || allocator->release == nullptr) return EINVAL;
  const auto reply = check(bytes(data, size));
  if (!reply) return EINVAL;
  if ((reply->members & has_description) != 0) {
    const size_t length = reply->description.size();
    auto *text = static_cast<char *>(allocator->allocate(length + 1));
    if (text == nullptr) return ENOMEM;
    std::copy(reply->description.begin(), reply->description.end(), text);
    text[length] = '\0';
    decoded->description = text;
  }
  decoded->ifhandle = reply->ifhandle;
  decoded->members = reply->members;
  return 0;
}

int wiredef_icpe_ext_intf_create_reply_data_have_required(
    const wiredef_icpe_ext_intf_create_reply_data *decoded) {
  return decoded != nullptr && (decoded->members & required) == required;
}

void wiredef_icpe_ext_intf_create_reply_data_free_ext(
    wiredef_icpe_ext_intf_create_reply_data *decoded, const wiredef_allocator *allocator) {
  if (decoded == nullptr || allocator == nullptr || allocator->release == nullptr) return;
  if (decoded->description != nullptr) allocator->release(decoded->description);
  *decoded = {};
}

namespace lum_linux {

std::vector<uint8_t> encode_create_reply(const create_reply &reply) {
  std::vector<uint8_t> members;
  uint8_t count = 0;
  if (reply.ifhandle) {
    put_number(members, tag_ifhandle, 2);
    put_number(members, sizeof *reply.ifhandle, 2);
    put_number(members, *reply.ifhandle, sizeof *reply.ifhandle);
    ++count;
  }
  if (reply.description) {
    const std::string_view whole = *reply.description;
    const std::string_view text = whole.substr(0, std::min(whole.find('\0'), longest_description));
    put_number(members, tag_description, 2);
    put_number(members, static_cast<uint32_t>(text.size()), 2);
    members.insert(members.end(), text.begin(), text.end());
    ++count;
  }
  std::vector<uint8_t> encoded(magic, magic + sizeof magic);
  encoded.push_back(format_version);
  encoded.push_back(count);
  put_number(encoded, static_cast<uint32_t>(header_size + members.size()), 4);
  encoded.insert(encoded.end(), members.begin(), members.end());
  if (reply.truncated) encoded.pop_back();
  return encoded;
}

}  // namespace lum_linux
