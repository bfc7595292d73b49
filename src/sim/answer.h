// The parts every qbsim answer is made of: QuickBooks' statuses and messages, the context of one
// request, and helpers that read requests and shape the objects returned.
#pragma once

#include <functional>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/company.h"

namespace pelmark::sim::detail {

struct Status {
    int code = 0;
    std::string message;
    std::optional<int> retCount;  // the metaData count, when asked for
};

// Statuses as QuickBooks words them.
Status StatusOk();
Status NoMatch();
Status PartlyFound(const std::string& missing);
Status ObjectNotFound(const std::string& id);
// An empty object ID. QuickBooks names the field in its own words ("list id"); qbsim assumes
// "txn id" and "txn line id" for the transaction IDs.
Status InvalidObjectID(const std::string& id, const std::string& field);

// What a handler works with: the company and the qbXML version of the message set.
struct Context {
    Company& company;
    int major = 0, minor = 0;
};

using Handler = std::function<Status(Context&, pugi::xml_node request, pugi::xml_node response)>;

// The sales transaction requests (queries, Mod, Add of the four kinds, TxnDisplayModRq).
std::vector<std::pair<std::string, Handler>> TransactionHandlers();

std::vector<pugi::xml_node> Elements(pugi::xml_node parent);
std::vector<std::string> Texts(pugi::xml_node parent, const char* name);
std::string Upper(std::string s);
// A date or date-time of a filter or an object, comparable as text (see the definition).
std::string ComparableTime(std::string value, bool endOfDay);
// A name or number filter's test (MatchCriterion StartsWith, Contains or EndsWith), without
// regard to case.
bool CriterionMatches(pugi::xml_node filter, const char* textElement, const std::string& have);
// Whether `owner` is one of the OwnerIDs a request named.
bool Wanted(const std::vector<std::string>& owners, std::string_view owner);
void RemoveComments(pugi::xml_node node);
// Shapes a copy of a stored object: custom fields of the named owners only (at its top level),
// and, when `limited`, only the top-level elements that `include` names.
void Trim(pugi::xml_node ret, const std::vector<std::string>& owners, bool limited,
          const std::vector<std::string>& include);
// Writes the found objects into the response, each shaped by `shape`, with status 1 when there
// are none and the count the metaData attribute asks for.
Status AnswerObjects(const std::vector<pugi::xml_node>& objects, std::string_view metaData,
                     const std::function<void(pugi::xml_node)>& shape, pugi::xml_node rs);
// Puts an object's or line's custom-field values (its last elements) in the order of their
// definitions. No public answer shows how QuickBooks orders values written at different times;
// qbsim assumes the definitions' order, and Pelmark compares values by name, not position.
void OrderDataExts(const Company& company, pugi::xml_node holder);
// The custom field or private data definition of an owner ("0" for custom fields) by name.
pugi::xml_node FindDefinition(const Company& company, const std::string& owner,
                              const std::string& name);

}  // namespace pelmark::sim::detail
