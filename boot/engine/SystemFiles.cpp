#include "engine/SystemFiles.h"

#include "engine/BootNames.h"

namespace {
constexpr Text kOfRoot[] = {L"boot",         L"efi",          L"recovery",     L"bootmgr",    L"bootmgr.efi",
                            L"bootnxt",      L"bootsect.bak", L"bootsect.dos", L"boot.ini",   L"bootfont.bin",
                            L"ntldr",        L"ntdetect.com", L"io.sys",       L"msdos.sys",  L"pagefile.sys",
                            L"swapfile.sys", L"hiberfil.sys", L"ntbootdd.sys", L"arcldr.exe", L"arcsetup.exe",
                            L"bootstat.dat", L"grldr",        L"grub"};
constexpr Text kRubbish[] = {L"temp\\",
                             L"prefetch\\",
                             L"minidump\\",
                             L"livekernelreports\\",
                             L"logs\\",
                             L"debug\\",
                             L"softwaredistribution\\download\\"};
constexpr Text kRubbishEndings[] = {L".log", L".tmp", L".dmp"};
} // namespace

bool systemfiles::isOfRoot(Text name)
{
    for (const Text& known : kOfRoot)
        if (name.isName(known))
            return true;
    // The system creates short names: "SYSTEM~1" for "System Volume Information".
    return name.startsWithName(L"system volume information") || name.startsWithName(L"system~") ||
           (name.startsWith(L"$") && !name.startsWithName(L"$recyc"));
}

bool systemfiles::isHive(Text name)
{
    return name.startsWithName(L"ntuser.") || name.startsWithName(L"ntuser~") ||
           name.startsWithName(L"usrclass.dat") || name.startsWithName(L"usrcla~");
}

bool systemfiles::isOfWindows(Text path)
{
    for (const Text& folder : kRubbish)
        if (path.startsWithName(folder))
            return false;
    for (const Text& ending : kRubbishEndings)
        if (path.find(L'\\') == Text::kNone && path.endsWithName(ending))
            return path.isName(bootnames::kLog);
    return true;
}
