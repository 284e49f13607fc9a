// Watches that nothing goes that was not named: rounds of one random deleting or overwriting operation each,
// over a tree full of things that it could take by mistake.
//   safety FOLDER [--seed N] [--rounds N] [--round N]      FOLDER as a Unix path; --round repeats a single
//   one

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "safety/Round.h"

namespace {
struct Row
{
    const char* name;
    Operation operation;
    unsigned share; // of 100
};
constexpr Row kRows[] = {{"delete file item", deleteFileItem, 17},
                         {"delete folder item", deleteFolderItem, 8},
                         {"create item", createItem, 14},
                         {"scan and delete", scanAndDelete, 24},
                         {"wipe file", wipeFile, 14},
                         {"wipe directory stack", wipeStack, 9},
                         {"change registry item", changeRegistryItem, 6},
                         {"scan registry and delete", scanRegistryAndDelete, 5},
                         {"host", runHost, 3}};

struct Outcome
{
    bool clean;
    bool destroyed;
};

unsigned currentRound = 0;
LONG WINAPI sayWhere(EXCEPTION_POINTERS* raised)
{
    std::printf("violation: --round %u ended the program with %#lx\n", currentRound,
                raised->ExceptionRecord->ExceptionCode);
    std::fflush(stdout);
    return EXCEPTION_EXECUTE_HANDLER;
}

Outcome play(World& world, unsigned seed, unsigned number)
{
    currentRound = number;
    Round round(world, seed, number);
    unsigned share = round.choices.below(100);
    const Row* row = kRows;
    while (share >= row->share)
        share -= row++->share;
    round.operation = row->name;
    row->operation(round);
    const bool clean = round.judge();
    return {clean, round.destroyed()};
}
} // namespace

int main(int argc, char** argv)
{
    unsigned seed = 1;
    unsigned first = 0;
    unsigned rounds = 2000;
    for (int index = 2; index + 1 < argc; index += 2) {
        const auto value = static_cast<unsigned>(std::strtoul(argv[index + 1], nullptr, 10));
        if (std::strcmp(argv[index], "--seed") == 0)
            seed = value;
        else if (std::strcmp(argv[index], "--rounds") == 0)
            rounds = value;
        else if (std::strcmp(argv[index], "--round") == 0)
            first = value, rounds = 1;
    }
    SetUnhandledExceptionFilter(sayWhere);
    unsigned unclean = 0;
    unsigned destroyed = 0;
    World world(argc > 1 ? argv[1] : "");
    for (unsigned number = first; number < first + rounds; ++number) {
        const Outcome outcome = play(world, seed, number);
        unclean += outcome.clean ? 0 : 1;
        destroyed += outcome.destroyed ? 1 : 0;
    }
    std::printf("%u rounds of seed %u: %u destroyed what was named, %u violations\n", rounds, seed, destroyed,
                unclean);
    // A library that refuses everything is of no use, and would show nothing here.
    return unclean != 0 || (rounds > 1 && destroyed < rounds * 4 / 10) ? 1 : 0;
}
