#include "shrink.h"
#include "virtual_loop.h"
#include "world.h"

#include <plugin_management/d_plugin_loader.h>

#include <CLI/CLI.hpp>
#include <QCoreApplication>

#include <cstdio>
#include <ctime>

namespace {

constexpr double usPerHour = 3.6e9;
constexpr int wrongUsage = 2;

// What the module and the host say is a part of what happens; numbers in it may be of this process.
void noteLog(QtMsgType type, const QMessageLogContext& /*context*/, const QString& text)
{
    World* world = World::current();
    if (world == nullptr) {
        std::fprintf(stderr, "%s\n", qPrintable(text));
        return;
    }
    QByteArray letters;
    letters.reserve(text.size());
    bool isAddress = false; // 0x7f...
    char last = 0;
    for (const QChar unicode : text) {
        const char letter = unicode.toLatin1();
        const bool isHexadecimal =
            (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'f');
        isAddress = (isAddress && isHexadecimal) || (last == '0' && letter == 'x');
        last = letter;
        if (!isAddress && letter > '9') {
            letters.append(letter);
        }
    }
    world->note(-1, "log", type, letters);
}

/// What the command line asks for.
struct Request
{
    std::string seeds; ///< FROM..TO
    quint64 seed = 0;
    quint64 shrunk = 0;
    int days = 0;
    quint64 spoiled = 0;
    bool isTraced = false;
    std::string module;
    LeftOut leftOut;
};

void addOptions(CLI::App& cli, Request& request)
{
    auto* what = cli.add_option_group("what", "one of these");
    what->add_option("--seeds", request.seeds, "the worlds FROM..TO, and a summary of them");
    what->add_option("--seed", request.seed, "one world, and the hash of all that happened in it");
    what->add_option("--shrink", request.shrunk, "what a world that fails needs for it");
    what->add_option("--days", request.days, "a device read once a second for so many days");
    what->add_option("--crossed", request.spoiled,
                     "32 units on one connection, until so many replies were late or crossed");
    what->require_option(1);
    cli.add_flag("--trace", request.isTraced, "with --seed: all that happened, a line each");
    cli.add_option("--without", request.leftOut.parts, "with --seed: parts of it to be left out")
        ->delimiter(',');
    cli.add_option("--objects", request.leftOut.objects, "with --seed: only the first so many");
    cli.add_option("--busy-us", request.leftOut.busyUs, "with --seed: all is well after that");
    cli.add_option("--module", request.module, "the module, if not the one that was built here");
}

int printFailure(quint64 seed, const Findings& found)
{
    if (found.failure.isEmpty()) {
        return 0;
    }
    std::printf("seed %llu: %s\n", seed, qPrintable(found.failure));
    std::fflush(stdout);
    return 1;
}

int runOne(const Request& request, DAbstractPlugin* root)
{
    Plan plan(request.seed);
    std::string unknown;
    if (!request.leftOut.applyTo(plan, unknown)) {
        std::fprintf(stderr, "simulate: a world has no part '%s'\n", unknown.c_str());
        return wrongUsage;
    }
    const Findings found = simulate(plan, root, request.isTraced);
    const int failed = printFailure(request.seed, found);
    std::printf("hash: %016llx\n", found.hash);
    return failed;
}

int printSummary(quint64 worlds, quint64 failed, const Findings& all, double seconds)
{
    std::printf("%llu worlds, %llu failed; %llu orders, %.0f a second; %llu stale copies of the "
                "very shape; %.1f hours of virtual time\nhash: %016llx\n",
                worlds, failed, all.orders, static_cast<double>(all.orders) / seconds,
                all.staleCopies, static_cast<double>(all.virtualUs) / usPerHour, all.hash);
    return failed == 0 ? 0 : 1;
}

// Processor time: other work on the machine does not count.
double seconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

int runMany(quint64 first, quint64 last, DAbstractPlugin* root)
{
    const double began = seconds();
    Findings all;
    quint64 failed = 0;
    for (quint64 seed = first; seed <= last; ++seed) {
        const Findings found = simulate(Plan(seed), root, false);
        failed += static_cast<quint64>(printFailure(seed, found));
        all.orders += found.orders;
        all.staleCopies += found.staleCopies;
        all.virtualUs += found.virtualUs;
        all.hash = Random::mixed(all.hash) ^ found.hash;
    }
    return printSummary(last - first + 1, failed, all, seconds() - began);
}

int runDays(const Request& request, DAbstractPlugin* root)
{
    const double began = seconds();
    const Findings found = simulate(Plan::quiet(1, request.days), root, false);
    const int failed = printFailure(1, found);
    return printSummary(1, static_cast<quint64>(failed), found, seconds() - began);
}

int runCrossed(const Request& request, DAbstractPlugin* root)
{
    constexpr int units = 32;
    const Findings found = simulateSpoiled(Plan::crossed(units), root, request.spoiled);
    const int failed = printFailure(1, found);
    std::printf("%d units on one connection, %llu replies late, doubled, swapped or numbered "
                "wrongly, %llu values, %llu of them another's; %.1f hours of virtual time\n",
                units, found.spoiled, found.orders, found.staleCopies,
                static_cast<double>(found.virtualUs) / usPerHour);
    return failed;
}

int runShrunk(const Request& request, DAbstractPlugin* root)
{
    const LeftOut leftOut = shrink(request.shrunk, root);
    Request again;
    again.seed = request.shrunk;
    again.leftOut = leftOut;
    std::printf("simulate --seed %llu%s\n", again.seed, leftOut.arguments().c_str());
    return runOne(again, root);
}

int run(const Request& request, DAbstractPlugin* root)
{
    if (request.spoiled > 0) {
        return runCrossed(request, root);
    }
    if (request.days > 0) {
        return runDays(request, root);
    }
    if (request.shrunk > 0) {
        return runShrunk(request, root);
    }
    if (request.seeds.empty()) {
        return runOne(request, root);
    }
    quint64 first = 0;
    quint64 last = 0;
    char rest = 0;
    const int read = std::sscanf(request.seeds.c_str(), "%llu..%llu%c", &first, &last, &rest);
    if (read != 2 || first > last) {
        std::fprintf(stderr, "simulate: --seeds takes FROM..TO, such as 1..2000\n");
        return wrongUsage;
    }
    return runMany(first, last, root);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("TZ", "UTC"); // else each log line asks the system for the time zone
    QCoreApplication::setEventDispatcher(new VirtualLoop);
    const QCoreApplication application(argc, argv);
    CLI::App cli{
        "Lets the driver's plants happen from a seed, in virtual time, and checks what must "
        "hold in each."};
    Request request;
    addOptions(cli, request);
    CLI11_PARSE(cli, argc, argv);
    qInstallMessageHandler(noteLog);
    const QString built = QCoreApplication::applicationDirPath()
        + QStringLiteral("/../lib/plugins/libp_driver_modbus.so");
    const DPluginLoader::Result module = DPluginLoader::load(
        request.module.empty() ? built : QString::fromStdString(request.module));
    if (!module) {
        std::fprintf(stderr, "simulate: %s\n", qPrintable(module.text));
        return wrongUsage;
    }
    return run(request, module.root);
}
