// SPDX-License-Identifier: Apache-2.0
#include "tavstrg/collection.h"

#include "tavstrg/ask.h"
#include "tavstrg/json_document.h"
#include "tavstrg/places.h"

namespace tool {
namespace {

Inventory completed(const Answers &answers, const SmartReadings &readings)
{
    Inventory inventory = buildInventory(answers);
    setReadings(inventory, readings.found());
    const KernelView kernel = readKernelView();
    setPlaces(inventory, kernel);
    inventory.explanation = emptyWords(inventory, kernel);
    return inventory;
}

} // namespace

Stopwatch::~Stopwatch()
{
    collection_.time = secondsNow();
    collection_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

Inventory collectInventory(Session &session, const SmartReadings &readings)
{
    Collection collection;
    Answers answers;
    {
        const Stopwatch stopwatch(collection);
        answers = askInventory(session);
    }
    Inventory inventory = completed(answers, readings);
    inventory.collection = collection;
    return inventory;
}

Inventory publishedInventory(Session &session, const SmartReadings &readings)
{
    return completed(askPublished(session.broker()), readings);
}

} // namespace tool
