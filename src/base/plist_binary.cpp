// The binary property-list format ("bplist00"). Every read is checked against the
// buffer: a truncated or hostile file is refused with a reason, never read past.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <unordered_map>

#include "base/plist_reader.h"
#include "base/unicode.h"

namespace bwk {

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;
constexpr size_t kMaxBinaryDepth = 512;
// Shared strings and data may be referenced many times; this caps how far references can
// multiply the input.
constexpr uint64_t kProducedBytesBase = 32ull << 20;
constexpr uint64_t kProducedBytesPerInputByte = 16;

class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes)
      : bytes_(bytes), budget_(kProducedBytesBase + kProducedBytesPerInputByte * bytes.size()) {}

  std::optional<PlistValue> read(std::string* error) {
    std::optional<PlistValue> result;
    if (readTrailer()) result = object(topObject_);
    if (!result && error) *error = "binary property list: " + error_;
    return result;
  }

 private:
  std::nullopt_t fail(std::string message) {
    if (error_.empty()) error_ = std::move(message);
    return std::nullopt;
  }
  bool refuse(std::string message) {
    fail(std::move(message));
    return false;
  }

  // A big-endian unsigned number of 1 to 8 bytes at `offset`, inside [0, limit).
  std::optional<uint64_t> unsignedAt(uint64_t offset, size_t width, uint64_t limit) {
    if (width < 1 || width > 8 || offset > limit || limit - offset < width)
      return fail("read past the end of the data");
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) v = (v << 8) | static_cast<unsigned char>(bytes_[offset + i]);
    return v;
  }

  bool readTrailer() {
    if (bytes_.size() < kHeaderSize + kTrailerSize + 1) return refuse("too short");
    if (bytes_.substr(0, kHeaderSize) != "bplist00") return refuse("no \"bplist00\" header");
    const uint64_t t = bytes_.size() - kTrailerSize;
    offsetSize_ = static_cast<unsigned char>(bytes_[t + 6]);
    refSize_ = static_cast<unsigned char>(bytes_[t + 7]);
    uint64_t count = *unsignedAt(t + 8, 8, bytes_.size());
    topObject_ = *unsignedAt(t + 16, 8, bytes_.size());
    tableOffset_ = *unsignedAt(t + 24, 8, bytes_.size());
    if (offsetSize_ < 1 || offsetSize_ > 8) return refuse("bad offset size " + std::to_string(offsetSize_));
    if (refSize_ < 1 || refSize_ > 8) return refuse("bad object reference size " + std::to_string(refSize_));
    if (count == 0) return refuse("no objects");
    if (topObject_ >= count) return refuse("top object out of range");
    if (tableOffset_ < kHeaderSize + 1 || tableOffset_ > t) return refuse("offset table out of range");
    if (count > (t - tableOffset_) / offsetSize_) return refuse("offset table runs past the trailer");
    // A reference size too small to name every object is allowed; one too large is not useful
    // but harmless, since every reference is checked against the count.
    objectCount_ = count;
    return true;
  }

  // The start of object `index`; objects lie between the header and the offset table.
  std::optional<uint64_t> objectOffset(uint64_t index) {
    if (index >= objectCount_) return fail("object reference " + std::to_string(index) + " out of range");
    std::optional<uint64_t> offset =
        unsignedAt(tableOffset_ + index * offsetSize_, offsetSize_, tableOffset_ + objectCount_ * offsetSize_);
    if (!offset) return std::nullopt;
    if (*offset < kHeaderSize || *offset >= tableOffset_) return fail("object offset out of range");
    return offset;
  }

  // The element count of a container, string or data: the low nibble, or an integer
  // object after the marker when the nibble is 0xF. `offset` moves past it.
  std::optional<uint64_t> length(uint8_t marker, uint64_t& offset) {
    uint64_t n = marker & 0x0F;
    if (n != 0x0F) return n;
    std::optional<uint64_t> intMarker = unsignedAt(offset, 1, tableOffset_);
    if (!intMarker) return std::nullopt;
    if ((*intMarker & 0xF0) != 0x10 || (*intMarker & 0x0F) > 3) return fail("bad length marker");
    size_t width = size_t{1} << (*intMarker & 0x0F);
    std::optional<uint64_t> value = unsignedAt(offset + 1, width, tableOffset_);
    if (!value) return std::nullopt;
    offset += 1 + width;
    return value;
  }

  // `count` items of `width` bytes must fit between `offset` and the offset table.
  bool fits(uint64_t offset, uint64_t count, uint64_t width) {
    if (offset > tableOffset_ || (width && count > (tableOffset_ - offset) / width))
      return refuse("object runs past the end of the data");
    return true;
  }

  bool spend(uint64_t bytes) {
    if (bytes > budget_ - produced_) return refuse("too much data through shared objects");
    produced_ += bytes;
    return true;
  }

  std::optional<PlistValue> integer(uint64_t offset, size_t width) {
    if (width <= 8) {
      std::optional<uint64_t> v = unsignedAt(offset, width, tableOffset_);
      if (!v) return std::nullopt;
      // 1, 2 and 4 bytes are unsigned; 8 bytes are two's complement.
      return PlistValue(static_cast<int64_t>(*v));
    }
    std::optional<uint64_t> high = unsignedAt(offset, 8, tableOffset_);
    std::optional<uint64_t> low = high ? unsignedAt(offset + 8, 8, tableOffset_) : std::nullopt;
    if (!low) return std::nullopt;
    const uint64_t signBit = uint64_t{1} << 63;
    if ((*high == 0 && !(*low & signBit)) || (*high == ~uint64_t{0} && (*low & signBit)))
      return PlistValue(static_cast<int64_t>(*low));
    return fail("integer does not fit in 64 bits");
  }

  std::optional<double> real(uint64_t offset, size_t width) {
    std::optional<uint64_t> v = unsignedAt(offset, width, tableOffset_);
    if (!v) return std::nullopt;
    if (width == 4) {
      auto bits = static_cast<uint32_t>(*v);
      float f;
      std::memcpy(&f, &bits, sizeof f);
      return static_cast<double>(f);
    }
    double d;
    std::memcpy(&d, &*v, sizeof d);
    return d;
  }

  std::optional<std::vector<uint64_t>> references(uint64_t offset, uint64_t count) {
    if (!fits(offset, count, refSize_)) return std::nullopt;
    std::vector<uint64_t> refs;
    refs.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
      std::optional<uint64_t> ref = unsignedAt(offset + i * refSize_, refSize_, tableOffset_);
      if (!ref) return std::nullopt;
      refs.push_back(*ref);
    }
    return refs;
  }

  std::optional<PlistValue> object(uint64_t index) {
    if (auto cached = done_.find(index); cached != done_.end()) {
      if (const std::string* s = cached->second.asString(); s && !spend(s->size())) return std::nullopt;
      if (const PlistData* d = cached->second.asData(); d && !spend(d->bytes.size())) return std::nullopt;
      return cached->second;
    }
    if (std::find(open_.begin(), open_.end(), index) != open_.end())
      return fail("object " + std::to_string(index) + " contains itself");
    if (open_.size() >= kMaxBinaryDepth) return fail("nesting too deep");
    open_.push_back(index);
    std::optional<PlistValue> v = parse(index);
    open_.pop_back();
    if (v) done_.emplace(index, *v);
    return v;
  }

  std::optional<PlistValue> parse(uint64_t index) {
    std::optional<uint64_t> start = objectOffset(index);
    if (!start) return std::nullopt;
    uint64_t offset = *start;
    auto marker = static_cast<uint8_t>(bytes_[offset++]);
    const uint8_t low = marker & 0x0F;
    switch (marker >> 4) {
      case 0x0:
        if (marker == 0x08) return PlistValue(false);
        if (marker == 0x09) return PlistValue(true);
        return fail("unsupported object marker " + std::to_string(marker));
      case 0x1:
        if (low > 4) return fail("bad integer size");
        return integer(offset, size_t{1} << low);
      case 0x2: {
        if (low != 2 && low != 3) return fail("bad real size");
        std::optional<double> r = real(offset, size_t{1} << low);
        if (!r) return std::nullopt;
        return PlistValue(*r);
      }
      case 0x3: {
        if (marker != 0x33) return fail("bad date marker");
        std::optional<double> r = real(offset, 8);
        if (!r) return std::nullopt;
        return PlistValue(PlistDate{*r});
      }
      case 0x4: return data(marker, offset);
      case 0x5: return asciiString(marker, offset);
      case 0x6: return utf16String(marker, offset);
      case 0x8: {
        // A keyed-archive reference; read as its number.
        if (low > 7) return fail("bad uid size");
        std::optional<uint64_t> v = unsignedAt(offset, size_t{low} + 1, tableOffset_);
        if (!v) return std::nullopt;
        return PlistValue(static_cast<int64_t>(*v));
      }
      case 0xA:
      case 0xC: return array(marker, offset);  // a set is read as an array
      case 0xD: return dictionary(marker, offset);
      default: return fail("unsupported object marker " + std::to_string(marker));
    }
  }

  std::optional<PlistValue> data(uint8_t marker, uint64_t offset) {
    std::optional<uint64_t> n = length(marker, offset);
    if (!n || !fits(offset, *n, 1) || !spend(*n)) return std::nullopt;
    const auto* p = reinterpret_cast<const uint8_t*>(bytes_.data() + offset);
    return PlistValue(PlistData{std::vector<uint8_t>(p, p + *n)});
  }

  // Bytes the writer stored one to a character: ASCII, or Latin-1 from older writers.
  std::optional<PlistValue> asciiString(uint8_t marker, uint64_t offset) {
    std::optional<uint64_t> n = length(marker, offset);
    if (!n || !fits(offset, *n, 1) || !spend(*n)) return std::nullopt;
    std::string_view ascii = bytes_.substr(offset, *n);
    bool plain = std::all_of(ascii.begin(), ascii.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return PlistValue(plain ? std::string(ascii) : unicode::latin1ToUtf8(ascii));
  }

  std::optional<PlistValue> utf16String(uint8_t marker, uint64_t offset) {
    std::optional<uint64_t> n = length(marker, offset);
    if (!n || !fits(offset, *n, 2) || !spend(*n * 2)) return std::nullopt;
    return PlistValue(unicode::utf16ToUtf8(bytes_.substr(offset, *n * 2), true));
  }

  std::optional<PlistValue> array(uint8_t marker, uint64_t offset) {
    std::optional<uint64_t> n = length(marker, offset);
    std::optional<std::vector<uint64_t>> refs = n ? references(offset, *n) : std::nullopt;
    if (!refs) return std::nullopt;
    PlistArray items;
    items.reserve(refs->size());
    for (uint64_t ref : *refs) {
      std::optional<PlistValue> item = object(ref);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
    }
    return PlistValue(std::move(items));
  }

  // All keys' references, then all values' references.
  std::optional<PlistValue> dictionary(uint8_t marker, uint64_t offset) {
    std::optional<uint64_t> n = length(marker, offset);
    if (!n || !fits(offset, *n, 2 * uint64_t{refSize_})) return std::nullopt;
    std::optional<std::vector<uint64_t>> keys = references(offset, *n);
    std::optional<std::vector<uint64_t>> values = keys ? references(offset + *n * refSize_, *n) : std::nullopt;
    if (!values) return std::nullopt;
    PlistDict entries;
    for (uint64_t i = 0; i < *n; ++i) {
      std::optional<PlistValue> key = object((*keys)[i]);
      if (!key) return std::nullopt;
      if (!key->isString()) return fail("dictionary key is not a string");
      std::optional<PlistValue> value = object((*values)[i]);
      if (!value) return std::nullopt;
      entries.insert_or_assign(*key->asString(), std::move(*value));
    }
    return PlistValue(std::move(entries));
  }

  std::string_view bytes_;
  std::string error_;
  size_t offsetSize_ = 0;
  size_t refSize_ = 0;
  uint64_t objectCount_ = 0;
  uint64_t topObject_ = 0;
  uint64_t tableOffset_ = 0;
  uint64_t budget_;
  uint64_t produced_ = 0;
  std::vector<uint64_t> open_;  // objects being read, outermost first
  std::unordered_map<uint64_t, PlistValue> done_;
};

}  // namespace

std::optional<PlistValue> readBinaryPropertyList(std::string_view bytes, std::string* error) {
  return BinaryReader(bytes).read(error);
}

}  // namespace bwk
