// The SDK layer against qbsim: the session and the lists, and line fields of later versions through
// a sort, with the sample company standing in for QuickBooks.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <pugixml.hpp>

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

// A user who may not see costs: the item list is asked for again with the limited elements, and
// every list loads whole (the full lists load in every sort run).
TEST(QbSimIntegration, ARestrictedUserLoadsTheListsAfterOneRetryEach) {
    SimApp restricted([](pugi::xml_node root) {
        root.child("QBSimSettings").attribute("restrictedUser").set_value("true");
    });
    std::vector<std::string> progress;
    restricted.app.statusHook = [&](const std::string& text) { progress.push_back(text); };
    ASSERT_TRUE(QBInit(restricted.app)) << restricted.Prompt();
    EXPECT_EQ(std::count(progress.begin(), progress.end(), "Retrying for permissions"), 1);
    EXPECT_EQ(restricted.app.qb.requestMajorVersion + "." + restricted.app.qb.requestMinorVersion,
              "13.0");
    EXPECT_GE(restricted.app.qb.customers.size(), 10u);
    EXPECT_GE(restricted.app.items.count(), 30u);
    EXPECT_FALSE(restricted.app.qb.templates.empty());
    EXPECT_TRUE(restricted.prompter.shown.empty()) << restricted.Prompt();
}

// Invoice 3001 of the sample with the line fields of later versions on its lines, sorted through
// a host that stops at 7.0: the session cannot see those fields, so only the sort itself is asked
// of it. (At 13.0 the property test's random transactions carry them through every sort.)
TEST(QbSimIntegration, AHostBeforeLaterLineFieldsSortsWithoutSeeingThem) {
    SimApp edited([&](pugi::xml_node root) {
        std::vector<pugi::xml_node> newer;
        for (pugi::xml_node v : root.child("HostRet").children("SupportedQBXMLVersion"))
            if (std::atof(v.text().get()) > 7.0) newer.push_back(v);
        for (pugi::xml_node v : newer) root.child("HostRet").remove_child(v);
        for (pugi::xpath_node l :
             root.select_nodes("//InvoiceRet[RefNumber='3001']/InvoiceLineRet")) {
            pugi::xml_node at = l.node().child("ServiceDate") ? l.node().child("ServiceDate")
                                                              : l.node().child("SalesTaxCodeRef");
            l.node()
                .insert_child_before("InventorySiteRef", at)
                .append_child("FullName")
                .text()
                .set("Site 1");
            l.node().insert_child_before("SerialNumber", at).text().set("N-1");
        }
    });
    test::SortRig rig("3001", {}, edited.companyPath);
    rig.Levels({"-Item Full Name"});
    ASSERT_TRUE(rig.Go()) << rig.app.run.status;
    EXPECT_EQ(rig.app.qb.requestMajorVersion + "." + rig.app.qb.requestMinorVersion, "7.0");
    EXPECT_TRUE(rig.app.run.checkProblems.empty());
    // A 7.0 answer holds no element of a later version, stored or not.
    EXPECT_TRUE(rig.app.qb.txn.lines.at(0).inventorySiteFullName.empty());
    EXPECT_EQ(rig.Items(), (std::vector<std::string>{"Widget", "Labor", "Freight", "Bracket 2in"}));
}

}  // namespace
}  // namespace pelmark::qb
