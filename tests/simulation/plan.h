#pragma once

#include <plugin_management/link_options.h>

#include <array>
#include <string>
#include <vector>

struct MisbehaviourKind;

/// What the user of a plug-in object does, at any time or inside a report.
enum class Deed {
    Read,
    Listen,
    Write,
    Inform, ///< deviceInformation
    Mistake, ///< an order that the module refuses
    Burst, ///< more orders than a queue holds
    StopOne,
    Connect,
    Disconnect,
    Trace,
    Loop, ///< an event loop inside a report
    Stop, ///< the process itself, for a while
    Destroy,
};
constexpr int deedCount = 13;
extern const std::array<const char*, deedCount> deedNames;

/// What a world is made of: all of it drawn from a seed, but for what somebody leaves out of it to
/// find what a failure needs.
struct Plan
{
    explicit Plan(quint64 seed);
    /// One device that does nothing wrong, read once a second for so long.
    static Plan quiet(quint64 seed, int days);

    /// So many units behind one connection, whose replies are late, doubled, swapped or numbered
    /// wrongly more often than not; each is read again and again, in the same shape.
    static Plan crossed(int units);

    /// What can be left out: names of misbehaviours and deeds, "inside", "away", "outage",
    /// "held-up", "cuts" and "link-options".
    std::vector<std::string> parts() const;
    /// False when there is no such part.
    bool leaveOut(const std::string& part);

    /// The port of the station whose serial line this file is, 0 for any other file.
    static quint16 serialPort(const char* path);

    /// The station of an object.
    int stationOf(int object) const { return shares ? 0 : object; }

    quint64 seed;
    int objects; ///< each with a device of its own
    bool shares; ///< but for these, which share one, and the link to it
    qint64 busyUs; ///< how long users and devices do what they like
    qint64 calmUs; ///< how long all is well after that
    qint64 outageUs = 0; ///< how long every device is away in between, with nobody to give up
    int calmIntervalMs = 60000; ///< of the reads then
    std::vector<LinkOptions> links = std::vector<LinkOptions>(3); ///< of each object
    bool readsOnly = false; ///< each user does nothing else, at one rate
    bool cuts = true; ///< the wire cuts what is sent
    int spoiledPerMille; ///< of the replies
    int nestedPerMille; ///< of the reports, in which something is done
    qint64 thinkUs; ///< between two deeds of a user, about
    qint64 upUs; ///< between two times that a device is away, about
    qint64 awayUs; ///< for how long, about
    qint64 heldUpUs = 0; ///< some turns of the loop, by other work, so that much is ready at once
    qint64 latencyUs; ///< of the wire, one way, at the most
    std::vector<const MisbehaviourKind*> kinds; ///< those of this world's devices
    std::array<int, deedCount> weights; ///< how often each deed is done

private:
    void drawShare();
    void drawWays();
    void drawCrowd();
};
