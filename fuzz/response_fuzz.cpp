// A qbXML response set as the run reads it: the set, every response's status and iterator, and
// each returned sales transaction read into header and line table.
#include "fuzzInput.h"
#include "qb/qbxmlResponse.h"
#include "qb/txn.h"

using namespace pelmark::qb;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ResponseParseResult parsed = ParseResponseSet(pelmark::fuzz::Text(data, size));
    if (!parsed.ok()) return 0;
    pelmark::fuzz::QuietApp t;
    const ResponseList& list = parsed.set.ResponseList();
    for (std::size_t i = 0; i < list.Count(); ++i) {
        Response r = list.GetAt(i);
        (void)r.StatusCode();
        (void)r.Detail().ToXMLString();
        for (TxnKind kind :
             {TxnKind::Invoice, TxnKind::Estimate, TxnKind::SalesOrder, TxnKind::SalesReceipt}) {
            std::vector<TxnLine> lines;
            if (View ret = ReturnedTxn(r, kind))
                pelmark::fuzz::AsTheProgramDoes([&] { ReadTxn(t.app, kind, ret, lines); });
        }
    }
    return 0;
}
