// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/collection.h"

#include "tavstrg/ask.h"
#include "tavstrg/json_document.h"
#include "tavstrg/places.h"

#include <chrono>

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

// Sets time and duration when it ends, however that is.
class Stopwatch {
public:
    explicit Stopwatch(Collection &collection) : collection_(collection) {}
    ~Stopwatch()
    {
        collection_.time = secondsNow();
        collection_.seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
    }
    Stopwatch(const Stopwatch &) = delete;
    Stopwatch &operator=(const Stopwatch &) = delete;

private:
    Collection &collection_;
    Clock::time_point begin_ = Clock::now();
};

Answers timedAnswers(broker::Broker &broker, Collection &collection)
{
    const Stopwatch watch(collection);
    return askInventory(broker);
}

} // namespace

Inventory collectInventory(broker::Broker &broker, const SmartReadings &readings, Collection &collection)
{
    Inventory inventory = buildInventory(timedAnswers(broker, collection));
    inventory.collection = collection;
    setReadings(inventory, readings.found());
    const KernelView kernel = readKernelView();
    setPlaces(inventory, kernel);
    inventory.explanation = emptyWords(inventory, kernel);
    return inventory;
}

} // namespace tool
