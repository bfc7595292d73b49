// The QuickBooks SDK's request processor over COM, late-bound through IDispatch, so that Pelmark
// needs no type library and works with whichever version of the SDK QuickBooks installed.
#include <objbase.h>
#include <oleauto.h>
#include <windows.h>

#include <string>
#include <vector>

#include "app/wideText.h"
#include "qb/transport.h"

namespace pelmark::qb {
namespace {

std::wstring Wide(const std::string& s) {
    return WideFromUtf8(s);
}
std::string Utf8(const wchar_t* w, size_t len) {
    return Utf8FromWide(w, len);
}

// A VARIANT argument that frees itself.
struct Arg {
    VARIANT v;
    explicit Arg(const std::string& s) {
        VariantInit(&v);
        v.vt = VT_BSTR;
        std::wstring w = Wide(s);
        v.bstrVal = SysAllocStringLen(w.data(), static_cast<UINT>(w.size()));
    }
    explicit Arg(int i) {
        VariantInit(&v);
        v.vt = VT_I4;
        v.lVal = i;
    }
    Arg(const Arg&) = delete;
    Arg& operator=(const Arg&) = delete;
    ~Arg() { VariantClear(&v); }
};

class ComTransport : public QbTransport {
  public:
    ComTransport() {
        HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        // S_FALSE: this thread had COM already; it still needs its matching uninitialise.
        comInitialized_ = SUCCEEDED(hr);
    }
    ~ComTransport() override {
        if (processor_) processor_->Release();
        if (comInitialized_) CoUninitialize();
    }

    TransportResult OpenConnection(const std::string& appID, const std::string& appName) override {
        if (TransportResult r = Create(); !r.ok) return r;
        Arg a1(appID), a2(appName), a3(kConnLocalQBD);
        return Call(L"OpenConnection2", {&a1, &a2, &a3}, nullptr);
    }
    TransportResult BeginSession(const std::string& companyFile, int openMode,
                                 std::string* ticket) override {
        Arg a1(companyFile), a2(openMode);
        return Call(L"BeginSession", {&a1, &a2}, ticket);
    }
    TransportResult ProcessRequest(const std::string& ticket, const std::string& request,
                                   std::string* response) override {
        Arg a1(ticket), a2(request);
        return Call(L"ProcessRequest", {&a1, &a2}, response);
    }
    TransportResult GetCurrentCompanyFileName(const std::string& ticket,
                                              std::string* fileName) override {
        Arg a1(ticket);
        return Call(L"GetCurrentCompanyFileName", {&a1}, fileName);
    }
    TransportResult EndSession(const std::string& ticket) override {
        Arg a1(ticket);
        return Call(L"EndSession", {&a1}, nullptr);
    }
    TransportResult CloseConnection() override {
        TransportResult r = Call(L"CloseConnection", {}, nullptr);
        if (processor_) {
            processor_->Release();
            processor_ = nullptr;
        }
        return r;
    }

  private:
    static TransportResult Fail(const std::string& call, HRESULT hr,
                                const std::string& detail = {}) {
        return {false, static_cast<uint32_t>(hr),
                DescribeHresult(call, static_cast<uint32_t>(hr), detail)};
    }

    TransportResult Create() {
        if (processor_) return {};
        CLSID clsid;
        HRESULT hr = CLSIDFromProgID(L"QBXMLRP2.RequestProcessor", &clsid);
        if (FAILED(hr)) return Fail("CLSIDFromProgID(QBXMLRP2.RequestProcessor)", hr);
        // The request processor is an out-of-process server on most installations and an
        // in-process one on some; either will do.
        hr = CoCreateInstance(clsid, nullptr, CLSCTX_LOCAL_SERVER | CLSCTX_INPROC_SERVER,
                              IID_IDispatch, reinterpret_cast<void**>(&processor_));
        if (FAILED(hr)) {
            processor_ = nullptr;
            return Fail("CoCreateInstance(QBXMLRP2.RequestProcessor)", hr);
        }
        return {};
    }

    // Calls a method by name; arguments are given in order (IDispatch wants them reversed).
    TransportResult Call(const wchar_t* method, std::vector<Arg*> args, std::string* result) {
        std::string name = Utf8(method, wcslen(method));
        if (!processor_) return Fail(name, static_cast<HRESULT>(0x80040402), "(no connection)");
        DISPID id;
        LPOLESTR names[] = {const_cast<LPOLESTR>(method)};
        HRESULT hr = processor_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
        if (FAILED(hr)) return Fail(name, hr, "(the request processor has no such method)");
        std::vector<VARIANT> reversed;
        for (auto it = args.rbegin(); it != args.rend(); ++it) reversed.push_back((*it)->v);
        DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), nullptr,
                          static_cast<UINT>(reversed.size()), 0};
        VARIANT out;
        VariantInit(&out);
        EXCEPINFO info{};
        UINT badArg = 0;
        hr = processor_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &out,
                                &info, &badArg);
        if (hr == DISP_E_EXCEPTION) {
            // The request processor reports its own errors as exceptions with a description.
            if (info.pfnDeferredFillIn) info.pfnDeferredFillIn(&info);
            HRESULT code = info.scode ? info.scode : hr;
            std::string text = info.bstrDescription
                                   ? Utf8(info.bstrDescription, SysStringLen(info.bstrDescription))
                                   : std::string();
            SysFreeString(info.bstrDescription);
            SysFreeString(info.bstrSource);
            SysFreeString(info.bstrHelpFile);
            VariantClear(&out);
            return Fail(name, code, text);
        }
        if (FAILED(hr)) {
            VariantClear(&out);
            return Fail(name, hr);
        }
        if (result) {
            result->clear();
            if (out.vt == VT_BSTR && out.bstrVal)
                *result = Utf8(out.bstrVal, SysStringLen(out.bstrVal));
        }
        VariantClear(&out);
        return {};
    }

    bool comInitialized_ = false;
    IDispatch* processor_ = nullptr;
};

}  // namespace

std::unique_ptr<QbTransport> MakeComTransport() {
    return std::make_unique<ComTransport>();
}

}  // namespace pelmark::qb
