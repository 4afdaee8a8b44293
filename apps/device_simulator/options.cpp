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
    for (const std::string& text : raw.presets) {
        QString ignored;
        presets.append(*RegisterText::parse(QString::fromStdString(text), ignored));
    }
    return true;
}
