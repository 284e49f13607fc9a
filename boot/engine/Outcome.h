#pragma once

#include "engine/NativeApi.h"
#include "engine/Text.h"

/// The outcome of one line of the list.
enum class Outcome
{
    // The line is finished.
    kDone,          ///< overwritten and deleted
    kGone,          ///< the path no longer exists
    kLinkRemoved,   ///< it was a link: that is removed, its target is untouched
                    // What the line names is left alone, and the line stays.
    kMalformed,     ///< not the format of a line
    kNotWanted,     ///< RunEvents::isWanted says no
    kCut,           ///< the last line, without its end
    kUnknownMethod, ///< not 1 to 3
    kTooManyPasses, ///< not 0 to 1,000
    kNotPlain,      ///< not the plain path of a file below the root of a drive or volume
    kNoVolume,      ///< the volume is missing, or not one of this machine's disks
    kSystemFile,    ///< the system needs it
    kOtherNames,    ///< it has other names, and the system does not tell which
    kLinkOnTheWay,  ///< a folder of the path is a link
    kFolder,
    kFollowed, ///< a link that this system would follow, instead of opening it
    kForeign,  ///< data that another program keeps elsewhere, such as a cloud file
    kExchange, ///< it was replaced with another file while it was examined
    kFailed,   ///< the system's status says why
    kNotDone   ///< the time ran out, or the run was cancelled
};

/// Whether the line is finished.
[[nodiscard]] constexpr bool isHandled(Outcome outcome)
{
    return outcome <= Outcome::kLinkRemoved;
}

/// The reason, for the log.
[[nodiscard]] constexpr Text reasonOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::kDone:
        return L"overwritten and deleted";
    case Outcome::kGone:
        return L"was gone already";
    case Outcome::kLinkRemoved:
        return L"link removed";
    case Outcome::kMalformed:
        return L"not the form of a line";
    case Outcome::kNotWanted:
        return L"it came on the list after that was shown";
    case Outcome::kCut:
        return L"a line without its end";
    case Outcome::kUnknownMethod:
        return L"a method that is not 1 to 3";
    case Outcome::kTooManyPasses:
        return L"passes that are not 0 to 1000";
    case Outcome::kNotPlain:
        return L"not the plain path of a file on a drive";
    case Outcome::kNoVolume:
        return L"its volume is not there, or no disk of this machine";
    case Outcome::kSystemFile:
        return L"the system needs it";
    case Outcome::kOtherNames:
        return L"it has other names, which cannot be told: the system may need it by one of them";
    case Outcome::kLinkOnTheWay:
        return L"a folder of its path is a link";
    case Outcome::kFolder:
        return L"a folder";
    case Outcome::kFollowed:
        return L"a link that the system follows";
    case Outcome::kForeign:
        return L"its data is kept elsewhere";
    case Outcome::kExchange:
        return L"it became another file meanwhile";
    case Outcome::kFailed:
        return L"failed";
    case Outcome::kNotDone:
        return L"not done in time";
    }
    return L"";
}

/// An outcome, with the status of a call that failed.
struct Result
{
    Outcome outcome = Outcome::kDone;
    native::Status status = native::kSuccess;
};
