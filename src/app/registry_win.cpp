// The Windows registry behind the Registry seam, through the ANSI registry calls.
#include <windows.h>

#include <vector>

#include "app/seams.h"

namespace pelmark {
namespace {

// The access the About form's reader asks for: read, write, create and enumerate.
constexpr REGSAM kFullAccess = 0x2003F;

HKEY RootKey(RegRoot root) {
    switch (root) {
        case RegRoot::ClassesRoot:
            return HKEY_CLASSES_ROOT;
        case RegRoot::CurrentUser:
            return HKEY_CURRENT_USER;
        case RegRoot::LocalMachine:
            return HKEY_LOCAL_MACHINE;
        case RegRoot::Users:
            return HKEY_USERS;
    }
    return HKEY_CURRENT_USER;
}

// Key paths arrive with and without a trailing "\"; RegOpenKeyExA rejects a leading one.
std::string KeyPath(const std::string& key) {
    size_t b = key.find_first_not_of('\\');
    if (b == std::string::npos) return {};
    size_t e = key.find_last_not_of('\\');
    return key.substr(b, e - b + 1);
}

// An open key that is closed on every path out of the caller.
class OpenKey {
  public:
    OpenKey(RegRoot root, const std::string& key, REGSAM access) {
        status_ = RegOpenKeyExA(RootKey(root), KeyPath(key).c_str(), 0, access, &key_);
        if (status_ != ERROR_SUCCESS) key_ = nullptr;
    }
    ~OpenKey() {
        if (key_) RegCloseKey(key_);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    HKEY get() const { return key_; }
    LONG status() const { return status_; }

  private:
    HKEY key_ = nullptr;
    LONG status_ = ERROR_SUCCESS;
};

class WinRegistry : public Registry {
  public:
    std::optional<RegData> Query(RegRoot root, const std::string& key,
                                 const std::string& name) override {
        OpenKey k(root, key, kFullAccess);
        if (!k.get() && k.status() == ERROR_ACCESS_DENIED) {
            // A user who is not an administrator cannot open HKEY_LOCAL_MACHINE keys with full
            // access; reading is all that is needed here.
            OpenKey readOnly(root, key, KEY_READ);
            return QueryOpen(readOnly.get(), name);
        }
        return QueryOpen(k.get(), name);
    }

    bool Set(RegRoot root, const std::string& key, const std::string& name,
             const RegData& data) override {
        HKEY h = nullptr;
        if (RegCreateKeyExA(RootKey(root), KeyPath(key).c_str(), 0, nullptr,
                            REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &h,
                            nullptr) != ERROR_SUCCESS)
            return false;
        LONG r = RegSetValueExA(h, name.c_str(), 0, data.type,
                                reinterpret_cast<const BYTE*>(data.bytes.data()),
                                static_cast<DWORD>(data.bytes.size()));
        RegCloseKey(h);
        return r == ERROR_SUCCESS;
    }

  private:
    // Type and size first, then the data; the value may grow between the two calls.
    static std::optional<RegData> QueryOpen(HKEY h, const std::string& name) {
        if (!h) return std::nullopt;
        for (int attempt = 0; attempt < 4; ++attempt) {
            DWORD type = 0, size = 0;
            if (RegQueryValueExA(h, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
                return std::nullopt;
            std::vector<BYTE> buf(size + 1);
            DWORD got = size;
            LONG r = RegQueryValueExA(h, name.c_str(), nullptr, &type, buf.data(), &got);
            if (r == ERROR_MORE_DATA) continue;
            if (r != ERROR_SUCCESS) return std::nullopt;
            RegData data;
            data.type = type;
            data.bytes.assign(reinterpret_cast<const char*>(buf.data()), got);
            return data;
        }
        return std::nullopt;
    }
};

}  // namespace

Registry& RealRegistry() {
    static WinRegistry registry;
    return registry;
}

}  // namespace pelmark
