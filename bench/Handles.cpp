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

std::shared_ptr<Table> makeTable(long objects)
{
    auto table = std::make_shared<Table>();
    for (long i = 0; i < objects; ++i)
        table->registerObject((L"C:\\Users\\somebody\\Object " + std::to_wstring(i * 7919LL)).c_str(),
                              makeShared<Object>());
    require(table->getCount() == static_cast<std::size_t>(objects), "the table is not full");
    return table;
}

std::function<void()> createGetClose(const std::shared_ptr<Table>& table, long turns)
{
    return [=] {
        for (long i = 0; i < turns; ++i) {
            const std::wstring name = L"C:\\Users\\somebody\\Object x" + std::to_wstring(i % 97);
            void* handle = table->openOrCreate(name.c_str(), [] { return makeShared<Object>(); });
            SharedPtr<Object> object;
            require(table->get(handle, object) == ERROR_SUCCESS, "get failed");
            require(table->close(handle) != 0, "close failed");
        }
    };
}
} // namespace

std::vector<BenchRow> handleRows(BenchScale scale)
{
    const long turns = scale(3000);
    return {{"create, get, close at 100,000 objects", "itself at 1,000", 1 / 1.5, static_cast<double>(turns),
             createGetClose(makeTable(scale(100000)), turns), createGetClose(makeTable(scale(1000)), turns)}};
}
