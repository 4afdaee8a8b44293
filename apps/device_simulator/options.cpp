#include "options.h"
#include "register_text.h"

#include <CLI/CLI.hpp>
#include <common/arguments.h>
#include <common/failure.h>
#include <common/number.h>
#include <common/write_all.h>

#include <algorithm>
#include <limits>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* AnyKind = "any";
constexpr std::size_t NameWidth = 26;

struct RawOptions
{
    std::string address = "127.0.0.1";
    int port = 1502;
    std::vector<std::string> presets;
    std::vector<std::string> kinds;
    Misbehaviour details;
    bool quiet = false;
};

std::string checkAddress(const std::string& text)
{
    const bool ok = !QHostAddress(QString::fromStdString(text)).isNull();
    return ok ? std::string() : "\"" + text + "\" is not an IP address";
}

std::string checkPreset(const std::string& text)
{
    QString error;
    return RegisterText::parse(QString::fromStdString(text), error) ? std::string()
                                                                    : error.toStdString();
}

std::string kindNames(const std::string& separator)
{
    std::string names = AnyKind;
    for (const MisbehaviourKind& kind : misbehaviourKinds) {
        names += separator + kind.name;
    }
    return names;
}

std::string checkKind(const std::string& text)
{
    const bool known = text == AnyKind || findMisbehaviour(QString::fromStdString(text)) != nullptr;
    return known ? std::string() : "\"" + text + "\" is not one of " + kindNames(", ");
}

std::string kindTexts()
{
    std::string texts = "Misbehaviours:\n";
    for (const MisbehaviourKind& kind : misbehaviourKinds) {
        std::string name = kind.name;
        name.resize(std::max(name.size(), NameWidth), ' ');
        texts.append("  ").append(name).append(kind.text).append("\n");
    }
    return texts;
}

// How the help shows what an option takes, and what it is without it.
template <typename Value>
std::string label(const std::string& takes, const Value& byDefault)
{
    std::ostringstream text;
    text << takes << ", default " << byDefault;
    return text.str();
}

void declareMisbehaviour(CLI::App& app, RawOptions& raw)
{
    constexpr int longestDelayMs = 3600 * 1000;
    auto* misbehave =
        app.add_option("--misbehave", raw.kinds,
                       "Spoil replies in this way; of several, with commas between, or of any, one "
                       "is drawn for each reply")
            ->check(CLI::Validator(checkKind, "NAME"))
            ->delimiter(',')
            ->expected(1)
            ->option_text(kindNames("|"));
    app.add_option("--every", raw.details.every, "Spoil each N-th reply, with --misbehave")
        ->transform(numberIn({1, 1000000}))
        ->option_text(label("1..1000000", raw.details.every))
        ->needs(misbehave);
    app.add_option("--delay", raw.details.delayMs,
                   "How late a reply, or how long a reboot is, in milliseconds, with --misbehave")
        ->transform(numberIn({0, longestDelayMs}))
        ->option_text(label("0..3600000", raw.details.delayMs))
        ->needs(misbehave);
    app.add_option("--seed", raw.details.seed, "Other draws for another number, with --misbehave")
        ->transform(numberIn({0, std::numeric_limits<int>::max()}))
        ->option_text(label("0..2147483647", raw.details.seed))
        ->needs(misbehave);
    app.footer(kindTexts());
}

void declare(CLI::App& app, RawOptions& raw)
{
    app.set_help_flag("-h,--help", "Print this help and end");
    app.set_version_flag("--version", "device-simulator " SIMULATOR_VERSION,
                         "Print the version and end");
    app.add_option("--address", raw.address, "Address to listen on")
        ->check(CLI::Validator(checkAddress, "ADDRESS"))
        ->option_text(label("ADDRESS", raw.address));
    app.add_option("--port", raw.port, "Port to listen on, 0 for any free one")
        ->transform(numberIn({0, 0xFFFF}))
        ->option_text(label("0..65535", raw.port));
    app.add_option("--set", raw.presets,
                   "Register contents to begin with; TYPE is one of coilsRegister, inputStatus, "
                   "holdingRegisters, inputRegisters")
        ->check(CLI::Validator(checkPreset, "SETTING"))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->option_text("TYPE:REGISTER=V[,V...], repeatable");
    declareMisbehaviour(app, raw);
    app.add_flag("--quiet", raw.quiet, "Do not log clients and writes on standard error");
}

std::vector<const MisbehaviourKind*> chosenKinds(const std::vector<std::string>& names)
{
    std::vector<const MisbehaviourKind*> kinds;
    for (const MisbehaviourKind& kind : misbehaviourKinds) {
        const bool chosen = std::any_of(names.begin(), names.end(), [&](const auto& name) {
            return name == AnyKind || name == kind.name;
        });
        if (chosen) {
            kinds.push_back(&kind);
        }
    }
    return kinds;
}

} // namespace

bool Options::parse(int argc, char** argv, int& exitCode)
{
    RawOptions raw;
    CLI::App app("A Modbus TCP device to try things on", "device-simulator");
    declare(app, raw);
    if (const auto answer = parseArguments(app, {argv + 1, argv + argc})) {
        writeAll(STDOUT_FILENO, answer->output.toUtf8());
        for (const QString& line : answer->errors) {
            writeErrorLine(line);
        }
        exitCode = answer->exitCode;
        return false;
    }
    address = QHostAddress(QString::fromStdString(raw.address));
    port = static_cast<quint16>(raw.port);
    quiet = raw.quiet;
    if (!raw.kinds.empty()) {
        raw.details.kinds = chosenKinds(raw.kinds);
        misbehaviour = raw.details;
    }
    for (const std::string& text : raw.presets) {
        QString ignored;
        presets.append(*RegisterText::parse(QString::fromStdString(text), ignored));
    }
    return true;
}
