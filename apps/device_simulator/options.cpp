#include "options.h"
#include "register_text.h"

#include <CLI/CLI.hpp>

#include <cstdio>
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

void declareMisbehaviour(CLI::App& app, RawOptions& raw)
{
    constexpr int longestDelayMs = 3600 * 1000;
    auto* misbehave =
        app.add_option("--misbehave", raw.misbehaviour,
                       "Spoil replies: "
                           + Misbehaviour::names().join(QStringLiteral(", ")).toStdString())
            ->check(CLI::Validator(checkMisbehaviour, "NAME"));
    app.add_option("--every", raw.details.every, "Spoil each N-th reply")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str()
        ->needs(misbehave);
    app.add_option("--delay", raw.details.delayMs,
                   "How late a reply, or how long a reboot is, in milliseconds")
        ->check(CLI::Range(0, longestDelayMs))
        ->capture_default_str()
        ->needs(misbehave);
}

void declare(CLI::App& app, RawOptions& raw)
{
    app.set_version_flag("--version", "device-simulator " SIMULATOR_VERSION);
    app.add_option("--address", raw.address, "Address to listen on")
        ->capture_default_str()
        ->check(CLI::Validator(checkAddress, "ADDRESS"));
    app.add_option("--port", raw.port, "Port to listen on, 0 for any free one")
        ->check(CLI::Range(0, 0xFFFF))
        ->capture_default_str();
    app.add_option("--set", raw.presets,
                   "Register contents to begin with, as TYPE:REGISTER=V[,V...]; TYPE is one of "
                   "coilsRegister, inputStatus, holdingRegisters, inputRegisters")
        ->check(CLI::Validator(checkPreset, "SETTING"))
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    declareMisbehaviour(app, raw);
    app.add_flag("--quiet", raw.quiet, "Do not log clients and writes on standard error");
}

int answer(const CLI::App& app, const CLI::ParseError& outcome)
{
    if (outcome.get_exit_code() == 0) {
        return app.exit(outcome);
    }
    std::fprintf(stderr, "device-simulator: %s (see --help)\n", outcome.what());
    return UsageError;
}

} // namespace

bool Options::parse(int argc, char** argv, int& exitCode)
{
    RawOptions raw;
    CLI::App app("A Modbus TCP device to try things on", "device-simulator");
    declare(app, raw);
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
