#include <runtime/link/translation.h>

#include <runtime/link/mbap_translation.h>
#include <runtime/link/rtu_translation.h>

namespace {

bool isWanted(const LinkOptions& options)
{
    return options.unit >= 0 || options.transactionIds || options.isRtu();
}

} // namespace

std::unique_ptr<Translation> Translation::make(const LinkOptions& options)
{
    if (options.isRtu()) {
        return std::make_unique<RtuTranslation>(options);
    }
    return isWanted(options) ? std::make_unique<MbapTranslation>(options) : nullptr;
}

std::unique_ptr<Translation> Translation::makeShared(const LinkOptions& options,
                                                     const ReplyFraming& framing)
{
    if (&framing == &mbapFraming() && !options.isRtu()) {
        return std::make_unique<MbapTranslation>(options);
    }
    return make(options);
}

QString Translation::refusal(const LinkOptions& options, const ReplyFraming& framing)
{
    return isWanted(options) && &framing != &mbapFraming()
        ? QStringLiteral("units, transaction ids and RTU are Modbus's, which this module does not "
                         "speak")
        : QString();
}
