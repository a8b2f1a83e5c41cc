// Import files come from other machines and from people's hands: whatever
// bytes they hold must give a list of sites or a clear failure, never a
// crash. The stored site list (an archive in the settings file) is read back
// the same way.
#include "model/ImportSites.h"
#include "model/Sites.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto parsed = tw::ImportSites::parse(bytes);
    if (const auto* sites = std::get_if<tw::SiteList>(&parsed)) {
        const auto back = tw::Sites::unarchive(tw::Sites::archive(*sites));
        if (!back || back->size() != sites->size())
            __builtin_trap();
    }
    tw::Sites::unarchive(bytes);
    return 0;
}
