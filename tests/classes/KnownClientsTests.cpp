#include "core/win32/utils/listeners/include/KnownClients.h"

#include "support/Test.h"

// However many post at the same time, and the longest silent is the one that is forgotten.
TEST(KnownClients, AreNotForgottenWhileTheyPost)
{
    KnownClients clients;
    std::vector<KnownClients::Client*> posting;
    for (std::uint64_t number = 0; number <= KnownClients::kMost; ++number) {
        posting.push_back(clients.begin(number));
        ASSERT_NE(posting.back(), nullptr);
        posting.back()->lastNumber = number + 1;
        EXPECT_EQ(clients.begin(number), nullptr);
    }
    EXPECT_EQ(clients.count(), KnownClients::kMost + 1);
    for (std::uint64_t number = 0; number <= KnownClients::kMost; ++number) {
        EXPECT_EQ(posting[number]->lastNumber, number + 1);
        posting[number]->isPosting = false;
    }
    const auto lastOf = [&](std::uint64_t number) {
        KnownClients::Client& client = *clients.begin(number);
        client.isPosting = false;
        return client.lastNumber;
    };
    EXPECT_EQ(lastOf(1), 2U); // and 0 is forgotten
    EXPECT_EQ(clients.count(), KnownClients::kMost);
    EXPECT_EQ(lastOf(0), 0U); // instead of 2
    EXPECT_EQ(lastOf(1), 2U);
    EXPECT_EQ(lastOf(2), 0U);
}
