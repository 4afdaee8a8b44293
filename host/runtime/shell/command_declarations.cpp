#include <runtime/shell/command_declarations.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

thread_local const CommandDeclarations::Ptr* expectedNow = nullptr;

bool isSame(const QList<Declaration>& one, const QList<Declaration>& other)
{
    return std::equal(one.cbegin(), one.cend(), other.cbegin(), other.cend(),
                      [](const Declaration& a, const Declaration& b) {
                          return isDeclared(a, b.name, b.typeTag, b.description, b.defaultValue);
                      });
}

bool isSame(const CommandDeclarations& one, const CommandDeclarations& other)
{
    return one.name == other.name && one.isRecurrent == other.isRecurrent
        && isSame(one.arguments, other.arguments) && isSame(one.results, other.results);
}

} // namespace

CommandDeclarations::Ptr CommandDeclarations::shared(const CommandDeclarations& declarations)
{
    thread_local std::vector<std::weak_ptr<const CommandDeclarations>> known;
    for (const auto& each : known) {
        Ptr found = each.lock();
        if (found && isSame(*found, declarations)) {
            return found;
        }
    }
    known.erase(
        std::remove_if(known.begin(), known.end(), [](const auto& each) { return each.expired(); }),
        known.end());
    Ptr made = std::make_shared<const CommandDeclarations>(declarations);
    known.push_back(made);
    return made;
}

CommandDeclarations::Ptr CommandDeclarations::expected()
{
    return expectedNow != nullptr ? *expectedNow : nullptr;
}

CommandDeclarations::Expectation::Expectation(Ptr declarations)
    : m_declarations(std::move(declarations)), m_before(std::exchange(expectedNow, &m_declarations))
{
}

CommandDeclarations::Expectation::~Expectation() { expectedNow = m_before; }
