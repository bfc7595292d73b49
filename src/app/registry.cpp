// Typed registry reads and writes over the Registry seam, and the in-memory registry.
#include "app/registry.h"

#include <charconv>
#include <cstdint>

#include "app/text.h"

namespace pelmark {
namespace {

// REG_EXPAND_SZ: read like a plain string (Windows keeps some folder values in this type).
constexpr unsigned kRegExpandSz = 2;

// Windows ignores a trailing "\" on a key path; the callers write key paths both ways.
std::string NormalKey(const std::string& key) {
    size_t b = key.find_first_not_of('\\');
    if (b == std::string::npos) return {};
    size_t e = key.find_last_not_of('\\');
    return Upper(key.substr(b, e - b + 1));
}

// A string value's text: its bytes up to the first NUL (the stored size includes the NUL).
std::string StringData(const std::string& bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

// A double word's bytes are little-endian; a short value reads its missing bytes as zero.
uint32_t DwordData(const std::string& bytes) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4 && i < bytes.size(); ++i)
        v |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return v;
}

// A decimal text as a double word: signed (the classic Long) or unsigned range.
std::optional<uint32_t> ParseDword(const std::string& text) {
    std::string t = TrimWs(text);
    long long v = 0;
    const char* first = t.data();
    const char* last = t.data() + t.size();
    if (!t.empty() && t[0] == '+') ++first;
    auto [end, ec] = std::from_chars(first, last, v);
    if (ec != std::errc() || end != last || first == last) return std::nullopt;
    if (v < INT32_MIN || v > static_cast<long long>(UINT32_MAX)) return std::nullopt;
    return static_cast<uint32_t>(v);
}

}  // namespace

MemoryRegistry::Id MemoryRegistry::MakeId(RegRoot root, const std::string& key,
                                          const std::string& name) {
    return {static_cast<int>(root), NormalKey(key), Upper(name)};
}

std::optional<RegData> MemoryRegistry::Query(RegRoot root, const std::string& key,
                                             const std::string& name) {
    auto it = values_.find(MakeId(root, key, name));
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

bool MemoryRegistry::Set(RegRoot root, const std::string& key, const std::string& name,
                         const RegData& data) {
    values_[MakeId(root, key, name)] = data;
    return true;
}

std::string RegReadValue(Registry& reg, RegRoot root, const std::string& key,
                         const std::string& name) {
    std::optional<RegData> data = reg.Query(root, key, name);
    if (!data) return {};
    switch (data->type) {
        case kRegSz:
        case kRegExpandSz:
            return StringData(data->bytes);
        case kRegDword:
            return std::to_string(static_cast<int32_t>(DwordData(data->bytes)));
        default:
            return {};
    }
}

bool RegWriteValue(Registry& reg, RegRoot root, const std::string& key, const std::string& name,
                   RegType type, const std::string& data) {
    RegData value;
    value.type = type;
    if (type == kRegSz) {
        value.bytes = data + '\0';
    } else if (type == kRegDword) {
        std::optional<uint32_t> v = ParseDword(data);
        if (!v) return false;
        for (int i = 0; i < 4; ++i) value.bytes += static_cast<char>((*v >> (8 * i)) & 0xFF);
    } else {
        return false;
    }
    return reg.Set(root, key, name, value);
}

std::optional<std::string> GetKeyValue(Registry& reg, RegRoot root, const std::string& key,
                                       const std::string& name) {
    std::optional<RegData> data = reg.Query(root, key, name);
    if (!data) return std::nullopt;
    if (data->type == kRegSz || data->type == kRegExpandSz) return StringData(data->bytes);
    if (data->type != kRegDword) return std::string();  // found, but not a type shown as text
    static const char kHex[] = "0123456789ABCDEF";
    uint32_t v = DwordData(data->bytes);
    std::string text = "&h";
    for (int shift = 24; shift >= 0; shift -= 8) {
        unsigned byte = (v >> shift) & 0xFF;
        text += kHex[byte >> 4];
        text += kHex[byte & 0xF];
    }
    return text;
}

}  // namespace pelmark
