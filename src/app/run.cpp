// Start-up of the program.
#include "app/run.h"

#include "app/context.h"
#include "app/items.h"
#include "app/logs.h"

namespace pelmark {

void Main(App& app, const HouseKeeperOptions& options) {
    CommonHouseKeeper(app, options);
    ReadItemsIIF(app);
    DebugLog(app, "Main ", 1);
}

}  // namespace pelmark
