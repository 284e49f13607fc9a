#include "core/win32/registry/defragmenter/include/RDWorker.h"

long RDWorker::operator()(IThreadContext&, void* cancelEvent)
{
    const InsideLibrary inside;
    return m_queue.consume(cancelEvent, [&](const Item& item) { return consumeItem(item); });
}

bool RDWorker::consumeItem(const Item& item)
{
    m_isComplete = !item;
    if (m_isComplete)
        return false;
    try {
        item->analyze(m_stopEvent);
    } catch (const Exception& raised) {
        addFailure(*item, static_cast<long>(raised.getCode()), raised.getText());
    } catch (...) { // no memory for a report
        addFailure(*item, boundary::codeOfCurrentException(), L"");
    }
    if (!m_isStopped && m_afterHive)
        m_isStopped = !m_afterHive();
    return !m_isStopped;
}

void RDWorker::addFailure(RDHiveItem& item, long code, const wchar_t* report)
{
    m_isStopped = code == ERROR_CANCELLED;
    if (m_isStopped)
        return;
    if (m_firstFailure == ERROR_SUCCESS)
        m_firstFailure = code;
    item.addFailure(static_cast<std::uint32_t>(code), report);
}
