// The SDK layer against qbsim: the session and the lists, and line fields of later versions through
// a sort, with the sample company standing in for QuickBooks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <pugixml.hpp>

#include "app/context.h"
#include "fakes/fakes.h"
#include "fakes/sortRig.h"
#include "qb/qbCommon.h"
#include "sim/simTransport.h"

namespace pelmark::qb {
namespace {

// A copy of the sample company, changed by `edit`, behind a qbsim transport.
struct SimApp : test::TestApp {
    std::string companyPath = dir.File("company.xml");
    std::unique_ptr<sim::SimTransport> transport;

    explicit SimApp(const std::function<void(pugi::xml_node)>& edit = {}) {
        pugi::xml_document doc;
        EXPECT_TRUE(doc.load_file(PELMARK_SOURCE_DIR "/samples/company.xml"));
        if (edit) edit(doc.child("QBSimCompany"));
        EXPECT_TRUE(doc.save_file(companyPath.c_str()));
        transport = std::make_unique<sim::SimTransport>(companyPath);
        app.sys.qbTransport = transport.get();
        app.frmMain.SetOption(*app.frmMain.Find("optStopOnAll"), true);
    }
    std::string Prompt() const { return prompter.shown.empty() ? "" : prompter.shown[0].text; }
};

std::string Canonical(pugi::xml_node n) {
    if (n.type() == pugi::node_pcdata) return n.value();
    std::string out = std::string("<") + n.name() + ">";
    for (pugi::xml_node c : n.children()) out += Canonical(c);
    return out;
}

// A user who may not see costs: both lists are asked for again with the limited elements, and
// every list loads whole (the full lists load in every sort run).
TEST(QbSimIntegration, ARestrictedUserLoadsTheListsAfterOneRetryEach) {
    SimApp restricted([](pugi::xml_node root) {
        root.child("QBSimSettings").attribute("restrictedUser").set_value("true");
    });
    std::vector<std::string> progress;
    restricted.app.statusHook = [&](const std::string& text) { progress.push_back(text); };
    ASSERT_TRUE(QBInit(restricted.app)) << restricted.Prompt();
    ASSERT_TRUE(SalesTaxCodeQuerySub(restricted.app)) << restricted.Prompt();
    EXPECT_EQ(std::count(progress.begin(), progress.end(), "Retrying for permissions"), 2);
    EXPECT_EQ(restricted.app.qb.requestMajorVersion + "." + restricted.app.qb.requestMinorVersion,
              "13.0");
    EXPECT_GE(restricted.app.qb.customers.size(), 10u);
    EXPECT_GE(restricted.app.items.count(), 30u);
    EXPECT_FALSE(restricted.app.qb.templates.empty() || restricted.app.qb.salesTaxCodes.empty());
    EXPECT_TRUE(restricted.prompter.shown.empty()) << restricted.Prompt();
}

// Invoice 3001 of the sample with the line fields of later versions on its lines, sorted through
// a 13.0 host and through one that stops at 7.0. At 13.0 every line keeps its inventory site,
// location, serial or lot number and custom fields, its own value over the item's where it had
// one; the item's value is taken off where it had none. A 7.0 session cannot see those fields,
// so there only the sort itself is asked of it.
TEST(QbSimIntegration, LineFieldsOfLaterVersionsAndInheritedValuesSurviveTheSort) {
    for (const char* version : {"13.0", "7.0"}) {
        SCOPED_TRACE(version);
        SimApp edited([&](pugi::xml_node root) {
            std::vector<pugi::xml_node> newer;
            for (pugi::xml_node v : root.child("HostRet").children("SupportedQBXMLVersion"))
                if (std::atof(v.text().get()) > std::atof(version)) newer.push_back(v);
            for (pugi::xml_node v : newer) root.child("HostRet").remove_child(v);
            int n = 0;
            for (pugi::xpath_node l :
                 root.select_nodes("//InvoiceRet[RefNumber='3001']/InvoiceLineRet")) {
                pugi::xml_node at = l.node().child("ServiceDate")
                                        ? l.node().child("ServiceDate")
                                        : l.node().child("SalesTaxCodeRef");
                auto put = [&](const char* name, const std::string& value, bool ref) {
                    pugi::xml_node e = l.node().insert_child_before(name, at);
                    (ref ? e.append_child("FullName") : e).text().set(value.c_str());
                };
                put("InventorySiteRef", "Site " + std::to_string(n % 2), true);
                put("InventorySiteLocationRef", "Bin " + std::to_string(n), true);
                put(n % 2 ? "SerialNumber" : "LotNumber", "N-" + std::to_string(n), false);
                if (n++ == 0) {  // its own Net Weight, not the item's
                    pugi::xml_node ext = l.node().append_child("DataExtRet");
                    for (auto [k, v] : {std::pair{"OwnerID", "0"},
                                        {"DataExtName", "Net Weight"},
                                        {"DataExtType", "STR255TYPE"},
                                        {"DataExtValue", "9 lb"}})
                        ext.append_child(k).text().set(v);
                }
            }
        });
        test::SortRig rig("3001", {}, edited.companyPath);
        rig.Levels({"-Item Full Name"});
        auto lines = [&] {
            std::vector<std::string> out;
            const sim::Company company = rig.Company();
            for (pugi::xpath_node l :
                 company.Root().select_nodes("//InvoiceRet[RefNumber='3001']/InvoiceLineRet")) {
                std::string text;
                for (pugi::xml_node f : l.node().children())
                    if (std::string(f.name()) != "TxnLineID") text += Canonical(f);
                out.push_back(text);
            }
            std::sort(out.begin(), out.end());
            return out;
        };
        const std::vector<std::string> before = lines();
        ASSERT_TRUE(rig.Go()) << rig.app.run.status;
        EXPECT_EQ(rig.app.qb.requestMajorVersion + "." + rig.app.qb.requestMinorVersion, version);
        EXPECT_TRUE(rig.app.run.checkProblems.empty());
        // A 7.0 answer holds no element of a later version, stored or not.
        EXPECT_EQ(rig.app.qb.txn.lines.at(0).inventorySiteFullName.empty(),
                  std::string(version) == "7.0");
        if (std::string(version) == "13.0") {
            EXPECT_EQ(lines(), before);
        }
        EXPECT_EQ(rig.Items(),
                  (std::vector<std::string>{"Widget", "Labor", "Freight", "Bracket 2in"}));
    }
}

}  // namespace
}  // namespace pelmark::qb
