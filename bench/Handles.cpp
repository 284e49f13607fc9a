#include <windows.h>

#include <memory>
#include <string>

#include "Bench.h"
#include "core/win32/utils/objectmanager/include/ObjectManager.h"

namespace {
struct Object
{
    static constexpr const char* kClassName = "Object";
};
using Table = ObjectManager<SharedPtr<Object>>;

using TablePtr = std::shared_ptr<std::unique_ptr<Table>>;

void fill(const TablePtr& table, long objects)
{
    if (*table)
        return;
    *table = std::make_unique<Table>();
    for (long i = 0; i < objects; ++i)
        (*table)->registerObject((L"C:\\Users\\somebody\\Object " + std::to_wstring(i * 7919LL)).c_str(),
                                 makeShared<Object>());
    require((*table)->getCount() == static_cast<std::size_t>(objects), "the table is not full");
}

void createGetClose(Table& table, long turns)
{
    for (long i = 0; i < turns; ++i) {
        const std::wstring name = L"C:\\Users\\somebody\\Object x" + std::to_wstring(i % 97);
        void* handle = table.openOrCreate(name.c_str(), [] { return makeShared<Object>(); });
        SharedPtr<Object> object;
        require(table.get(handle, object) == ERROR_SUCCESS, "get failed");
        require(table.close(handle) != 0, "close failed");
    }
}
} // namespace

BenchRows handleRows(BenchScale scale)
{
    const long turns = scale(3000);
    const TablePtr large = std::make_shared<std::unique_ptr<Table>>();
    const TablePtr small = std::make_shared<std::unique_ptr<Table>>();
    BenchRows rows;
    rows.timed = {{"create, get, close at 100,000 objects", "itself at 1,000", 1 / 1.5,
                   static_cast<double>(turns), [=] { createGetClose(**large, turns); },
                   [=] { createGetClose(**small, turns); },
                   [=] {
                       fill(large, scale(100000));
                       fill(small, scale(1000));
                   }}};
    rows.timed.back().peerCounted = true;
    return rows;
}
