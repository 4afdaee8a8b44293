#include <runtime/link/translation.h>

#include <runtime/link/mbap_translation.h>

namespace {

bool isWanted(const LinkOptions& options) { return options.unit >= 0 || options.transactionIds; }

} // namespace

std::unique_ptr<Translation> Translation::make(const LinkOptions& options)
{
    return isWanted(options) ? std::make_unique<MbapTranslation>(options) : nullptr;
}

QString Translation::refusal(const LinkOptions& options, const ReplyFraming& framing)
{
    return isWanted(options) && &framing != &mbapFraming()
        ? QStringLiteral("unit ids and transaction ids are Modbus TCP's, which this module does "
                         "not speak")
        : QString();
}
