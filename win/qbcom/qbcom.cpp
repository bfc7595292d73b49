// qbcom.dll: a test fixture that answers to the QuickBooks SDK's request processor ProgID
// (QBXMLRP2.RequestProcessor) from a qbsim company file, so that Pelmark's COM transport runs
// unchanged under Wine. Never shipped.
//
// It is an in-process server, as the SDK's own QBXMLRP2.dll is: under Wine an out-of-process
// server would need IDispatch marshalling and a server process to outlive each test.
//
// Registration (per machine under Wine, which reads COM classes from HKLM only):
//   regsvr32 /n /i:COMPANY_FILE qbcom.dll   registers and names the company file (DllInstall)
//   regsvr32 qbcom.dll                      registers, keeping the company file named before
//   regsvr32 /u qbcom.dll                   removes the ProgID and the class
// The company file is the value "CompanyFile" of the class key; each new request processor
// object reads it, so a test can point the server at another file between connections.
#include <objbase.h>
#include <oleauto.h>
#include <olectl.h>
#include <windows.h>

#include <cwchar>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "app/wideText.h"
#include "qb/transport.h"
#include "sim/simTransport.h"

namespace {

using pelmark::qb::TransportResult;

// {93F1AF7C-F52A-451D-B3C1-CBBB8373C89F}: qbcom's own class; the real request processor's
// CLSID is left alone so that a machine with QuickBooks is not confused by a stale test entry.
const CLSID kClsid = {0x93f1af7c, 0xf52a, 0x451d, {0xb3, 0xc1, 0xcb, 0xbb, 0x83, 0x73, 0xc8, 0x9f}};
const wchar_t kClsidText[] = L"{93F1AF7C-F52A-451D-B3C1-CBBB8373C89F}";
const wchar_t kProgID[] = L"QBXMLRP2.RequestProcessor";
const wchar_t kCompanyValue[] = L"CompanyFile";
const wchar_t kSource[] = L"QBXMLRP2.RequestProcessor";
// The request processor's code for BeginSession with no file while QuickBooks has none open.
constexpr HRESULT kHrNoCompanyOpen = static_cast<HRESULT>(0x80040416);

HMODULE g_module = nullptr;
LONG g_objects = 0;
LONG g_locks = 0;

std::wstring ClassesKey(const wchar_t* below) {
    return std::wstring(L"Software\\Classes\\") + below;
}
std::wstring ClassKey() {
    return ClassesKey(L"CLSID\\") + kClsidText;
}

// ---- Registration -------------------------------------------------------------------------

bool SetString(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
    HKEY h = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &h,
                        nullptr) != ERROR_SUCCESS)
        return false;
    LONG r = RegSetValueExW(h, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                            static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(h);
    return r == ERROR_SUCCESS;
}

HRESULT Register(const wchar_t* companyFile) {
    wchar_t path[MAX_PATH] = {};
    if (!GetModuleFileNameW(g_module, path, MAX_PATH)) return SELFREG_E_CLASS;
    const std::wstring progID = ClassesKey(kProgID), cls = ClassKey();
    const wchar_t* description = L"qbsim request processor (Pelmark test fixture)";
    bool ok = SetString(progID, nullptr, description) &&
              SetString(progID + L"\\CLSID", nullptr, kClsidText) &&
              SetString(cls, nullptr, description) && SetString(cls, L"ProgID", kProgID) &&
              SetString(cls + L"\\InprocServer32", nullptr, path) &&
              SetString(cls + L"\\InprocServer32", L"ThreadingModel", L"Apartment");
    if (ok && companyFile) ok = SetString(cls, kCompanyValue, companyFile);
    return ok ? S_OK : SELFREG_E_CLASS;
}

HRESULT Unregister() {
    for (const std::wstring& key : {ClassesKey(kProgID), ClassKey()}) {
        LONG r = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
        if (r != ERROR_SUCCESS && r != ERROR_FILE_NOT_FOUND) return SELFREG_E_CLASS;
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str());
    }
    return S_OK;
}

std::string RegisteredCompanyFile() {
    wchar_t value[1024] = {};
    DWORD size = sizeof value;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, ClassKey().c_str(), kCompanyValue, RRF_RT_REG_SZ, nullptr,
                     value, &size) != ERROR_SUCCESS)
        return {};
    return pelmark::Utf8FromWide(value, std::wcslen(value));
}

// ---- The request processor ----------------------------------------------------------------

BSTR Bstr(const std::string& text) {
    std::wstring w = pelmark::WideFromUtf8(text);
    return SysAllocStringLen(w.data(), static_cast<UINT>(w.size()));
}

// What the request processor says about a failure: qbsim's own detail (the message's text after
// the HRESULT that DescribeHresult puts in front of it), or the whole message when it has none.
std::string Description(const std::string& call, const TransportResult& r) {
    std::string lead = pelmark::qb::DescribeHresult(call, r.hresult);
    if (r.message.size() > lead.size() + 1 && r.message.compare(0, lead.size(), lead) == 0)
        return r.message.substr(lead.size() + 1);
    return r.message;
}

// One argument, converted to the type the method takes.
struct Arg {
    std::string text;
    int number = 0;
};
using Args = std::vector<Arg>;

// A request processor object's state: the company file registered when it was made, and qbsim
// answering for QuickBooks over that file.
struct Session {
    explicit Session(const std::string& file) : companyFile(file), sim(file) {}
    std::string companyFile;
    pelmark::sim::SimTransport sim;
};

using Handler = TransportResult (*)(Session&, const Args&, std::string*);

struct Method {
    const wchar_t* name;
    std::vector<VARTYPE> args;  // in the order the caller writes them
    bool returnsText;
    Handler call;
};

// The methods Pelmark calls, with the argument types of the SDK's type library.
// clang-format off
const Method kMethods[] = {
    {L"OpenConnection2", {VT_BSTR, VT_BSTR, VT_I4}, false,
     [](Session& s, const Args& a, std::string*) -> TransportResult {
         if (a[2].number != pelmark::qb::kConnLocalQBD) {
             auto hr = static_cast<uint32_t>(E_INVALIDARG);
             return {false, hr, pelmark::qb::DescribeHresult("OpenConnection2", hr,
                 "(connection type " + std::to_string(a[2].number) +
                 ": only localQBD (1) is served)")};
         }
         return s.sim.OpenConnection(a[0].text, a[1].text);
     }},
    {L"BeginSession", {VT_BSTR, VT_I4}, true,
     [](Session& s, const Args& a, std::string* out) -> TransportResult {
         // QuickBooks with no company open: the session needs a file, and none is registered.
         if (s.companyFile.empty() && a[0].text.empty()) {
             auto hr = static_cast<uint32_t>(kHrNoCompanyOpen);
             return {false, hr, pelmark::qb::DescribeHresult("BeginSession", hr,
                                                            "(no company file is registered)")};
         }
         return s.sim.BeginSession(a[0].text, a[1].number, out);
     }},
    {L"ProcessRequest", {VT_BSTR, VT_BSTR}, true,
     [](Session& s, const Args& a, std::string* out) {
         return s.sim.ProcessRequest(a[0].text, a[1].text, out);
     }},
    {L"GetCurrentCompanyFileName", {VT_BSTR}, true,
     [](Session& s, const Args& a, std::string* out) {
         return s.sim.GetCurrentCompanyFileName(a[0].text, out);
     }},
    {L"EndSession", {VT_BSTR}, false,
     [](Session& s, const Args& a, std::string*) { return s.sim.EndSession(a[0].text); }},
    {L"CloseConnection", {}, false,
     [](Session& s, const Args&, std::string*) { return s.sim.CloseConnection(); }},
};
// clang-format on
constexpr DISPID kFirstDispID = 1;
constexpr int kMethodCount = static_cast<int>(sizeof kMethods / sizeof kMethods[0]);

class RequestProcessor final : public IDispatch, public ISupportErrorInfo {
  public:
    RequestProcessor() : session_(RegisteredCompanyFile()) { InterlockedIncrement(&g_objects); }
    ~RequestProcessor() { InterlockedDecrement(&g_objects); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        if (!out) return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IDispatch)) {
            *out = static_cast<IDispatch*>(this);
        } else if (IsEqualIID(riid, IID_ISupportErrorInfo)) {
            *out = static_cast<ISupportErrorInfo*>(this);
        } else {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&refs_); }
    ULONG STDMETHODCALLTYPE Release() override {
        LONG n = InterlockedDecrement(&refs_);
        if (n == 0) delete this;
        return static_cast<ULONG>(n);
    }

    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) override {
        return IsEqualIID(riid, IID_IDispatch) ? S_OK : S_FALSE;
    }

    // No type library: callers bind late by name, as Pelmark does.
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
        if (info) *info = nullptr;
        return DISP_E_BADINDEX;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                            DISPID* ids) override {
        if (!names || !ids || count == 0) return E_INVALIDARG;
        // Only the method's own name is looked up; it has no named arguments.
        HRESULT hr = S_OK;
        for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
        for (int m = 0; m < kMethodCount; ++m)
            if (_wcsicmp(names[0], kMethods[m].name) == 0) ids[0] = kFirstDispID + m;
        if (ids[0] == DISPID_UNKNOWN || count > 1) hr = DISP_E_UNKNOWNNAME;
        return hr;
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* excep, UINT* argErr) override {
        int index = static_cast<int>(id - kFirstDispID);
        if (index < 0 || index >= kMethodCount || !(flags & DISPATCH_METHOD))
            return DISP_E_MEMBERNOTFOUND;
        const Method& m = kMethods[index];
        if (!params) return E_INVALIDARG;
        if (params->cNamedArgs) return DISP_E_NONAMEDARGS;
        if (params->cArgs != m.args.size()) return DISP_E_BADPARAMCOUNT;
        Args args;
        for (size_t i = 0; i < m.args.size(); ++i) {
            // IDispatch passes the arguments last first.
            UINT at = static_cast<UINT>(m.args.size() - 1 - i);
            VARIANT v;
            VariantInit(&v);
            if (FAILED(VariantChangeType(&v, &params->rgvarg[at], 0, m.args[i]))) {
                if (argErr) *argErr = at;
                return DISP_E_TYPEMISMATCH;
            }
            Arg arg;
            if (m.args[i] == VT_BSTR && v.bstrVal)
                arg.text = pelmark::Utf8FromWide(v.bstrVal, SysStringLen(v.bstrVal));
            else if (m.args[i] == VT_I4)
                arg.number = static_cast<int>(v.lVal);
            args.push_back(std::move(arg));
            VariantClear(&v);
        }
        const std::string call = pelmark::Utf8FromWide(m.name, std::wcslen(m.name));
        std::string out;
        TransportResult r = m.call(session_, args, &out);
        if (!r.ok) return Raise(call, r, excep);
        if (result) {
            VariantInit(result);
            if (m.returnsText) {
                result->vt = VT_BSTR;
                result->bstrVal = Bstr(out);
            }
        }
        return S_OK;
    }

  private:
    // The request processor reports a failure as an exception whose code is its HRESULT and
    // whose description says what went wrong; the same goes into the thread's error object for
    // callers that read IErrorInfo instead.
    static HRESULT Raise(const std::string& call, const TransportResult& r, EXCEPINFO* excep) {
        const HRESULT hr = static_cast<HRESULT>(r.hresult);
        const std::string text = Description(call, r);
        ICreateErrorInfo* create = nullptr;
        if (SUCCEEDED(CreateErrorInfo(&create))) {
            std::wstring w = pelmark::WideFromUtf8(text);
            create->SetGUID(IID_IDispatch);
            create->SetSource(const_cast<LPOLESTR>(kSource));
            create->SetDescription(w.data());
            IErrorInfo* info = nullptr;
            if (SUCCEEDED(
                    create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)))) {
                SetErrorInfo(0, info);
                info->Release();
            }
            create->Release();
        }
        if (!excep) return hr;
        *excep = EXCEPINFO{};
        excep->scode = hr;
        excep->bstrSource = SysAllocString(kSource);
        excep->bstrDescription = Bstr(text);
        return DISP_E_EXCEPTION;
    }

    LONG refs_ = 1;
    Session session_;
};

class Factory final : public IClassFactory {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        if (!out) return E_POINTER;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IClassFactory)) {
            *out = this;
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    // One static factory: its count only keeps the module loaded while a caller holds it.
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&g_locks); }
    ULONG STDMETHODCALLTYPE Release() override { return InterlockedDecrement(&g_locks); }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        auto* p = new (std::nothrow) RequestProcessor();
        if (!p) return E_OUTOFMEMORY;
        HRESULT hr = p->QueryInterface(riid, out);
        p->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        if (lock)
            InterlockedIncrement(&g_locks);
        else
            InterlockedDecrement(&g_locks);
        return S_OK;
    }
};

Factory g_factory;

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, LPVOID* out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualCLSID(clsid, kClsid)) return CLASS_E_CLASSNOTAVAILABLE;
    return g_factory.QueryInterface(riid, out);
}

STDAPI DllCanUnloadNow() {
    return g_objects == 0 && g_locks == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    return Register(nullptr);
}

STDAPI DllUnregisterServer() {
    return Unregister();
}

// regsvr32 /i:COMPANY_FILE: registers the server on that company file; /u /i: unregisters.
STDAPI DllInstall(BOOL install, LPCWSTR commandLine) {
    if (!install) return Unregister();
    return Register(commandLine ? commandLine : L"");
}

}  // extern "C"
