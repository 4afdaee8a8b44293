#include "options.h"
#include "register_text.h"

#include <CLI/CLI.hpp>
#include <common/terminal_text.h>
#include <common/tool_answers.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int UsageError = 2;

struct RawOptions
{
    std::string address = "127.0.0.1";
    int port = 1502;
    std::vector<std::string> presets;
    std::string misbehaviour;
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

std::string checkMisbehaviour(const std::string& text)
{
    const bool known = Misbehaviour::kindFromName(QString::fromStdString(text)).has_value();
    return known ? std::string()
                 : "\"" + text + "\" is not one of "
            + Misbehaviour::names().join(QStringLiteral(", ")).toStdString();
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
    auto* misbehave = app.add_option("--misbehave", raw.misbehaviour, "Spoil replies in this way")
                          ->check(CLI::Validator(checkMisbehaviour, "NAME"))
                          ->option_text(Misbehaviour::names().join(QLatin1Char('|')).toStdString());
    app.add_option("--every", raw.details.every, "Spoil each N-th reply, with --misbehave")
        ->check(CLI::Range(1, 1000000))
        ->option_text(label("1..1000000", raw.details.every))
        ->needs(misbehave);
    app.add_option("--delay", raw.details.delayMs,
                   "How late a reply, or how long a reboot is, in milliseconds, with --misbehave")
        ->check(CLI::Range(0, longestDelayMs))
        ->option_text(label("0..3600000", raw.details.delayMs))
        ->needs(misbehave);
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
        ->check(CLI::Range(0, 0xFFFF))
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

int answer(const CLI::App& app, const CLI::ParseError& outcome)
{
    if (outcome.get_exit_code() == 0) {
        return app.exit(outcome);
    }
    const QString what = withoutControls(QString::fromUtf8(outcome.what()));
    std::fprintf(stderr, "device-simulator: %s (see --help)\n", qUtf8Printable(what));
    return UsageError;
}

} // namespace

bool Options::parse(int argc, char** argv, int& exitCode)
{
    RawOptions raw;
    CLI::App app("A Modbus TCP device to try things on", "device-simulator");
    declare(app, raw);
    if (const auto text = toolAnswer(app, {argv + 1, argv + argc})) {
        std::fputs(text->c_str(), stdout);
        return false;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& outcome) {
        exitCode = answer(app, outcome);
        return false;
    }
    address = QHostAddress(QString::fromStdString(raw.address));
    port = static_cast<quint16>(raw.port);
    quiet = raw.quiet;
    if (const auto kind = Misbehaviour::kindFromName(QString::fromStdString(raw.misbehaviour))) {
        raw.details.kind = *kind;
        misbehaviour = raw.details;
    }
    for (const std::string& text : raw.presets) {
        QString ignored;
        presets.append(*RegisterText::parse(QString::fromStdString(text), ignored));
    }
    return true;
}
