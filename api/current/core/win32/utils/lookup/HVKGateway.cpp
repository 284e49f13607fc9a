#include "core/win32/utils/lookup/include/HVKGateway.h"

#include <algorithm>

#include "core/win32/utils/communication/include/MessageTopic.h"
#include "core/win32/utils/connections/include/Connection.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"

using primitives::placedStep;

namespace {
constexpr DWORD kConnectTimeout = 15000;
constexpr unsigned char kVersion = 1; // of the form of requests
constexpr unsigned char kLookUp = 1;  // what is asked for

// Where what stands in an answer.
constexpr std::size_t kCountAt = std::tuple_size_v<HVKRequest::Id>;
constexpr std::size_t kStatusesAt = kCountAt + 1;
} // namespace

void HVKGateway::addItem(const HVKItem& item)
{
    m_paths.push_back(item.getPath());
    m_request.addItem(item);
}

void HVKGateway::queryServer(HANDLE cancelEvent)
{
    SmartHandle<closeConnection> handle;
    ConnectionPtr connection;
    placedStep(PLACE(kHVKGatewayHeader, "HVKGateway::queryServer", 303), [&] {
        connection = makeShared<Connection>(
            L"HVKQuery", makeSocketEndpoint(ConnectionRole::Client, m_server.host.c_str(), m_server.port, 0));
        handle.reset(addConnection(L"HVKQuery", connection));
    });
    placedStep(PLACE(kHVKGatewayHeader, "HVKGateway::queryServer", 307),
               [&] { connection->connect(WaitLimits(kConnectTimeout, cancelEvent)); });
    placedStep(PLACE(kHVKGatewayHeader, "HVKGateway::queryServer", 317), [&] {
        m_request.setHeader(kVersion, kLookUp);
        m_request.build();
        const std::vector<unsigned char>& request = m_request.getBuffer();
        if (request.empty())
            raiseCode(ERROR_INVALID_PARAMETER);
        connection->getWire()->writeAll(request.data(), request.size(),
                                        WaitLimits(m_server.answerTimeout, cancelEvent));
    });
    placedStep(PLACE(kHVKGatewayHeader, "HVKGateway::queryServer", 325),
               [&] { readResponse(*connection->getWire(), cancelEvent); });
    placedStep(PLACE(kHVKGatewayHeader, "HVKGateway::queryServer", 329), [&] { parseResponse(cancelEvent); });
}

bool HVKGateway::isAnswered() const noexcept
{
    const HVKRequest::Id& id = m_request.getId();
    return m_length >= kStatusesAt && std::equal(id.begin(), id.end(), m_response.begin());
}

// Answers come in pieces, and may have fewer statuses than files: nothing is waited for that was not
// announced. One that is wrong already is not read on; parsing says what is wrong.
void HVKGateway::readResponse(Wire& wire, HANDLE cancelEvent)
{
    const WaitLimits limits(m_server.answerTimeout, cancelEvent);
    m_length = 0;
    m_response.assign(kStatusesAt + m_request.getCount(), 0);
    wire.readAll(m_response.data(), kStatusesAt, limits);
    m_length = kStatusesAt;
    const std::size_t count = m_response[kCountAt];
    if (!isAnswered() || count > m_request.getCount())
        return;
    wire.readAll(m_response.data() + kStatusesAt, count, limits);
    m_length += count;
}

void HVKGateway::parseResponse(HANDLE cancelEvent)
{
    if (!isAnswered())
        throw Exception(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 400), ERROR_NO_MATCH);
    const std::size_t count = m_response[kCountAt];
    if (count == 0)
        throw Exception(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 406), ERROR_NO_MORE_ITEMS);
    if (count > m_paths.size())
        throw Exception(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 406), ERROR_INVALID_DATA);
    const SmartHandle<closeTopic> topic(messageTopics().lookup(kHVKResponses));
    if (!topic.isValid())
        throw Exception(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 410));
    for (std::size_t i = 0; i < count; ++i) {
        if (isCancelled(cancelEvent))
            throw Exception(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 415), ERROR_CANCELLED);
        placedStep(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 433),
                   [&] { postStatus(topic.get(), m_response[kStatusesAt + i]); });
        m_paths.pop_front();
    }
}

void HVKGateway::postStatus(void* topic, unsigned char status)
{
    HashMessageW message(kHVKResponses, m_messageId);
    requireSuccess(message.setParameter(kHVKPath, m_paths.front().c_str()));
    requireSuccess(message.setParameter(kHVKStatus, std::uint32_t{status}));
    requireSuccess(
        withTopic(PLACE(kHVKGatewayHeader, "HVKGateway::parseResponse", 433), topic,
                  [&](MessageTopic& object) { object.postMessage(message, MessageTopic::kNoValue); }));
}
