// Registering qbcom.dll in the Wine prefix through its own entry points, as regsvr32 does.
#include "wine/qbcom_win.h"

#include <windows.h>

#include <filesystem>

#include "app/wideText.h"
#include "wine/fakeqb_win.h"

namespace pelmark::test {
namespace {

// The DLL stays loaded: COM may hold it too once a test has made an object of it.
HMODULE QbComModule() {
    static HMODULE module = LoadLibraryW(WindowsPath(PELMARK_QBCOM_DLL).c_str());
    return module;
}

template <typename Fn>
Fn Entry(const char* name) {
    HMODULE m = QbComModule();
    return m ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(m, name))) : nullptr;
}

}  // namespace

bool RegisterQbCom(const std::string& companyFile) {
    auto install = Entry<HRESULT(STDAPICALLTYPE*)(BOOL, LPCWSTR)>("DllInstall");
    return install && SUCCEEDED(install(TRUE, WideFromUtf8(companyFile).c_str()));
}

bool UnregisterQbCom() {
    auto unregister = Entry<HRESULT(STDAPICALLTYPE*)()>("DllUnregisterServer");
    return unregister && SUCCEEDED(unregister());
}

std::string CopySampleCompany(const std::string& folder) {
    std::string copy = folder + "company.xml";
    std::filesystem::copy_file(WindowsPath(PELMARK_SOURCE_DIR "/samples/company.xml"),
                               WideFromUtf8(copy),
                               std::filesystem::copy_options::overwrite_existing);
    return copy;
}

std::string QbxmlRequest(const std::string& requests) {
    return "<?xml version=\"1.0\"?><?qbxml version=\"7.0\"?><QBXML>"
           "<QBXMLMsgsRq onError=\"stopOnError\">" +
           requests + "</QBXMLMsgsRq></QBXML>";
}

qb::TransportResult AskThroughCom(const std::string& requests, std::string* response) {
    auto t = qb::MakeComTransport();
    qb::TransportResult r = t->OpenConnection("", "Corvalt's Pelmark");
    if (!r.ok) return r;
    std::string ticket;
    r = t->BeginSession("", qb::kOpenDoNotCare, &ticket);
    if (r.ok) r = t->ProcessRequest(ticket, QbxmlRequest(requests), response);
    if (!ticket.empty()) {
        qb::TransportResult end = t->EndSession(ticket);
        if (r.ok) r = end;
    }
    qb::TransportResult close = t->CloseConnection();
    return r.ok ? close : r;
}

}  // namespace pelmark::test
