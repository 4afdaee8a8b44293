#pragma once

#include <plugin_management/plugin_management_global.h>
#include <plugin_management/types.h>

#include <QList>
#include <QString>

/// What a host wants of the way between a worker and its device, below the module, which never
/// learns of it: see DAbstractPlugin::setLinkOptions(). With all of it off, as it is here, every
/// byte on the wire is the module's own. A value: copy it, use it on any thread.
struct LinkOptions
{
    /// A first attempt to connect that fails does not end the "connect": it is tried again like a
    /// lost connection, until it succeeds or the "connect" is stopped.
    bool keepTrying = false;
    /// The unit to ask, 0 to 255, whatever unit the worker's frames name; they get their own back.
    /// A reply from another unit is dropped and counted (WorkerStatistics::droppedBytes). -1: off.
    int unit = -1;
    /// Each request gets a transaction id of its own on the wire, 1, 2, 3 and so on, and the worker
    /// its own id back. A reply with another one is dropped and counted, and so never taken for
    /// another's; a time-out then costs no new connection, unless the device has said nothing at
    /// all to eight requests in a row. An id comes again after 65535 others.
    bool transactionIds = false;

    /// The connection is secured by TLS 1.2 or newer, and the device must show a certificate that
    /// is valid, for a server, in its name, and from an authority that is believed. By custom such
    /// devices listen on port 802.
    bool tls = false;
    QString tlsCa; ///< PEM file of the authorities to believe; empty: those of the system
    QString tlsCert; ///< PEM file of our own certificate, and those up to its authority
    QString tlsKey; ///< PEM file of its private key, without a passphrase
    QString tlsName; ///< name or address that the device's certificate must have; empty: the host
    /// RTU frames with their CRC go over the connection in the place of those of Modbus TCP, as
    /// serial servers pass them on: Modbus over Serial Line V1.02, section 2.5.1. Needs a unit, 1
    /// to 255, and leaves no place for transaction ids. Functions 1 to 6 and 15 to 17 are
    /// understood; a reply to another one, or with a wrong CRC, is a bad reply.
    bool rtu = false;
    /// Plug-in objects of one thread that name the same host (letter for letter) and port, with the
    /// same transactionIds, rtu and options of TLS, use one connection, each with its own unit. One
    /// request is out on it at a time, in turns; time limits run from the write as ever. Whoever
    /// needs a new connection gets it for all. One whose unit leaves three requests in a row
    /// without a reply is paused for 250 ms, doubling to 15 s, in which its orders fail at once as
    /// "not connected", so that it does not hold up the others.
    bool share = false;
    /// The device is on this serial line, DEVICE[,BAUD[,FORMAT]][,echo], such as
    /// "/dev/ttyUSB0,9600,8N1"; what is left out is 19200 baud and 8E1, as Modbus over Serial Line
    /// V1.02 has it, section 3.2. Objects of one thread can 'share' it; else it is one object's
    /// alone. It has RTU frames on it and asks for what 'rtu' does; a "connect" needs no host and
    /// no port then, and does not look at them. "echo": all that is sent comes back first, as on
    /// some lines of two wires. Empty: off.
    QString serial;

    /// The event loop of the object's thread looks for replies awake, before it sleeps, for up to
    /// 20 us from then on; a reply that comes within that need not wait until the thread has been
    /// woken. It looks once for each request of this object; after one whose reply took longer it
    /// leaves out the next 1, doubling to 256. What comes is handled in the same order as without.
    /// It costs processor time, and what else the thread has to do may come 20 us later.
    bool spin = false;

    bool isRtu() const { return rtu || !serial.isEmpty(); }

    // unit, transactionIds and rtu are for workers whose framing is mbapFraming(): Modbus Messaging
    // on TCP/IP V1.0b, section 3.1.3.
};

/// How a link option is named and written, for programs that offer it to people.
struct LinkOptionDescription
{
    QString name; ///< such as "keepTrying"
    QString form; ///< what it takes, such as "0..255"; empty: true or false
    QString description; ///< for people, one line
};

/// All there are, in the order in which to show them.
HOST_PLUGIN_MANAGEMENT_EXPORT QList<LinkOptionDescription> linkOptionDescriptions();

/// What is wrong with one link option.
struct LinkOptionFault
{
    QString option; ///< its name
    QString text; ///< such as "'300' is not a number 0 to 255"
};

/// Reads \a given, values by option names, as JSON or a command line has them (a number may be a
/// text); what is not there is off. False, with \a fault, when there is no such option or a value
/// is none that it takes.
HOST_PLUGIN_MANAGEMENT_EXPORT bool readLinkOptions(const ParameterMap& given, LinkOptions& options,
                                                   LinkOptionFault& fault);

/// Why these options cannot be used together or here; empty when they can.
HOST_PLUGIN_MANAGEMENT_EXPORT QString linkOptionsRefusal(const LinkOptions& options);
