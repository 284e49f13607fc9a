#pragma once

#include <cstdint>
#include <deque>

#include "core/win32/utils/connections/include/Wire.h"
#include "core/win32/utils/lookup/include/HVKRequest.h"

inline constexpr char kHVKGatewayHeader[] = "core\\win32\\utils\\lookup\\include\\HVKGateway.h";

/// The topic of the answers, and what its messages hold.
inline constexpr wchar_t kHVKResponses[] = L"HVKResponses";
inline constexpr wchar_t kHVKPath[] = L"Path";
inline constexpr wchar_t kHVKStatus[] = L"HVKStatus";

/// Where the lookup server is, and how long it may take to answer in milliseconds.
struct HVKServer
{
    std::wstring host = L"lookup.invalid"; // which no name server knows: nothing goes anywhere by default
    unsigned short port = 4448;
    DWORD answerTimeout = 60000;
};

/// Asks the lookup server about one batch of files after another, and posts an answer for each file.
///
/// The answer is the id of the request (4 bytes), how many statuses follow (1 byte), and one byte for each
/// file in the order of the request.
class HVKGateway
{
public:
    HVKGateway(HVKServer server, std::uint32_t messageId)
        : m_server(std::move(server)), m_messageId(messageId)
    {
    }

    /// Adds a file, whose hash is known, to the batch.
    void addItem(const HVKItem& item);
    /// Sends the batch and posts the answers. Raises an Exception: 1169 for the answer to another request,
    /// 259 for an empty one, 13 for one with more statuses than files, 1223 when `cancelEvent` (may be null)
    /// is signalled, 1168 without the topic, 87 for a batch of no files or of more than 255, or the code of
    /// the connection. Nothing has been posted then, but where posting itself has ended in the middle.
    void queryServer(HANDLE cancelEvent);
    /// Posts the answers that the response which was read last holds, as the last step of queryServer does.
    void parseResponse(HANDLE cancelEvent);
    /// The files of the batch that no answer has been posted for, in the order of the request.
    [[nodiscard]] const std::deque<std::wstring>& getPaths() const noexcept { return m_paths; }

private:
    [[nodiscard]] bool isAnswered() const noexcept;
    void readResponse(Wire& wire, HANDLE cancelEvent);
    void postStatus(void* topic, unsigned char status);

    HVKServer m_server;
    std::uint32_t m_messageId;
    HVKRequest m_request;
    std::deque<std::wstring> m_paths;
    std::vector<unsigned char> m_response;
    std::size_t m_length = 0; // of what has been read
};
