#include "shrink.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

// The rule that is broken, whatever else a text says of it; nothing when none is.
QString broken(quint64 seed, const LeftOut& leftOut, DAbstractPlugin* root, qint64& atUs)
{
    Plan plan(seed);
    std::string unknown;
    leftOut.applyTo(plan, unknown);
    const Findings found = simulate(plan, root, false);
    atUs = found.failedAtUs;
    return found.failure.section(QStringLiteral(" s: "), 1)
        .remove(QRegularExpression(QStringLiteral("[0-9]")));
}

} // namespace

bool LeftOut::applyTo(Plan& plan, std::string& part) const
{
    plan.objects = objects > 0 ? std::min(objects, plan.objects) : plan.objects;
    plan.busyUs = busyUs > 0 ? std::min(busyUs, plan.busyUs) : plan.busyUs;
    const auto wrong = std::find_if(parts.begin(), parts.end(), [&plan](const std::string& name) {
        return !plan.leaveOut(name);
    });
    part = wrong != parts.end() ? *wrong : std::string();
    return part.empty();
}

std::string LeftOut::arguments() const
{
    std::string text = objects > 0 ? " --objects " + std::to_string(objects) : "";
    text += busyUs > 0 ? " --busy-us " + std::to_string(busyUs) : "";
    for (const std::string& part : parts) {
        text += (&part == parts.data() ? " --without " : ",") + part;
    }
    return text;
}

LeftOut shrink(quint64 seed, DAbstractPlugin* root)
{
    LeftOut best;
    qint64 atUs = 0;
    const QString rule = broken(seed, best, root, atUs);
    const auto tryOut = [&](const LeftOut& candidate) {
        const bool isSmaller = broken(seed, candidate, root, atUs) == rule;
        best = isSmaller ? candidate : best;
        return isSmaller;
    };
    for (const std::string& part : Plan(seed).parts()) {
        LeftOut candidate = best;
        candidate.parts.push_back(part);
        tryOut(candidate);
    }
    for (int objects = 1; objects < Plan(seed).objects; ++objects) {
        LeftOut candidate = best;
        candidate.objects = objects;
        if (tryOut(candidate)) {
            break;
        }
    }
    broken(seed, best, root, atUs);
    LeftOut candidate = best;
    candidate.busyUs = atUs + 1;
    tryOut(candidate);
    return best;
}
