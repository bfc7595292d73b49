// Typed registry reads and writes (the RegistryStuffM module and the GetKeyValue reader).
#pragma once

#include <optional>
#include <string>

#include "app/seams.h"

namespace pelmark {

// The value's data as text (a string up to its first NUL, a double word in decimal), or empty
// when the key or the value is missing.
std::string RegReadValue(Registry& reg, RegRoot root, const std::string& key,
                         const std::string& name);
// Writes a string (kRegSz) or a 32-bit double word (kRegDword, `data` in decimal).
bool RegWriteValue(Registry& reg, RegRoot root, const std::string& key, const std::string& name,
                   RegType type, const std::string& data);
// The About form's reader: a string up to its NUL, a double word as "&h" and hexadecimal digits;
// empty when the key cannot be opened.
std::optional<std::string> GetKeyValue(Registry& reg, RegRoot root, const std::string& key,
                                       const std::string& name);

}  // namespace pelmark

#include <map>
#include <tuple>
#include <utility>

namespace pelmark {

// A registry held in memory: the registry of the portable build, and of tests.
class MemoryRegistry : public Registry {
  public:
    std::optional<RegData> Query(RegRoot root, const std::string& key,
                                 const std::string& name) override;
    bool Set(RegRoot root, const std::string& key, const std::string& name,
             const RegData& data) override;

  private:
    // Keys and value names compare without regard to case, as Windows compares them.
    using Id = std::tuple<int, std::string, std::string>;
    static Id MakeId(RegRoot root, const std::string& key, const std::string& name);
    std::map<Id, RegData> values_;
};

}  // namespace pelmark
