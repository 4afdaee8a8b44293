#include "d_cmd_drv_connect.h"
#include "d_cmd_drv_device_info.h"
#include "d_cmd_drv_listen.h"
#include "d_cmd_drv_read.h"
#include "d_cmd_drv_write.h"
#include "p_driver_modbus.h"

#include <plugin_management/d_abstract_worker.h>

#include <QtTest>

#include <array>
#include <cstring>

// The binary interface: which entry of its class's virtual table an operation stands in. By the
// Itanium C++ ABI a pointer to a virtual member is that entry's byte offset plus 1.

namespace {

template <typename Member>
int slot(Member member)
{
    std::ptrdiff_t word = 0;
    std::memcpy(&word, &member, sizeof(word));
    return static_cast<int>((word - 1) / std::ptrdiff_t{sizeof(void*)});
}

template <typename... Members>
QList<int> list(Members... members)
{
    return {slot(members)...};
}

template <typename Class>
using FindProperty = QVariant (Class::*)(const QString&, bool*) const;
template <typename Class>
using PropertyOr = QVariant (Class::*)(const QString&, const QVariant&) const;
using P = DAbstractPlugin;
using I = IPlugin;
using C = ICommand;

struct W : DAbstractWorker
{
    using DAbstractWorker::cbConnect, DAbstractWorker::cbDisconnect, DAbstractWorker::cbReply;
};
struct D : DAbstractCommand
{
    using DAbstractCommand::addInstruction;
};

} // namespace

class TestSlots : public QObject
{
    Q_OBJECT

private slots:
    // clang-format off
    void order_data()
    {
        QTest::addColumn<int>("first");
        QTest::addColumn<QList<int>>("found");
        // Behind QObject's twelve: meta-object 3, destructor 2, events 7.
        QTest::newRow("DAbstractCommand") << 12 << list(
            &D::linkWithItsOrder, &D::commandName, &D::stopCommandName, &D::getOrderId,
            &D::getParameterOrderId, &D::isRecurrent, &D::isValid, &D::description,
            &D::fullDescription, &D::commandArguments, &D::commandExecute, &D::setReply,
            &D::finishTheCommand, &D::sigCommandFinished, &D::addInstruction,
            &DCmdDrvRead::createCommand);
        QTest::newRow("DAbstractWorker") << 12 << list(
            &W::sltStartOrder, &W::sltStopOrder, &W::sigStatusChanged, &W::sigOrderRunning,
            &W::sigOrderDone, &W::sigOrderAnswer, &W::sigOrderError, &W::isConnected,
            &W::cbConnect, &W::cbDisconnect, &W::cbReply);
        QTest::newRow("DAbstractPlugin") << 12 << list(
            &P::objectUuid, &P::getName, &P::pluginUuid, &P::pluginName, &P::pluginVersion,
            &P::pluginType, &P::compatiblePlugins, &P::compatibilityString,
            FindProperty<P>(&P::getProperty), PropertyOr<P>(&P::getProperty), &P::getFunctions,
            &P::getFunctionDescription, &P::getCommandParameters, &P::setMainConfig,
            &P::getInMainConfig, &P::getInPluginConfig, &P::getDebugIdentification,
            &P::getMainConfig, &P::setInPluginConfig, &P::setInMainConfig,
            &PDriverModbus::initPluginCommands, &PDriverModbus::createInstance,
            &PDriverModbus::pluginSubTypeName);
        // Behind the destructor's two, and behind nothing.
        QTest::newRow("IPlugin") << 2 << list(
            &I::objectUuid, &I::getName, &I::pluginUuid, &I::pluginName, &I::pluginVersion,
            &I::pluginType, &I::compatiblePlugins, &I::compatibilityString,
            FindProperty<I>(&I::getProperty), PropertyOr<I>(&I::getProperty), &I::setMainConfig,
            &I::getInMainConfig, &I::getInPluginConfig, &I::getDebugIdentification,
            &I::createInstance, &I::pluginSubTypeName, &I::getFunctions,
            &I::getFunctionDescription, &I::getCommandParameters, &I::getMainConfig,
            &I::setInPluginConfig, &I::setInMainConfig);
        QTest::newRow("ICommand") << 0 << list(
            &C::createCommand, &C::linkWithItsOrder, &C::commandName, &C::stopCommandName,
            &C::getOrderId, &C::getParameterOrderId, &C::isRecurrent, &C::isValid,
            &C::description, &C::fullDescription, &C::commandArguments, &C::commandExecute,
            &C::setReply, &C::finishTheCommand, &C::sigCommandFinished);
    }
    // clang-format on

    // Entry 4 of the table is the destructor that also frees the object.
    void clearedPointerDeletes_data()
    {
        QTest::addColumn<DAbstractCommand*>("prototype");
        QTest::newRow("connect") << static_cast<DAbstractCommand*>(new DCmdDrvConnect(this));
        QTest::newRow("listen") << static_cast<DAbstractCommand*>(new DCmdDrvListen(this));
        QTest::newRow("read") << static_cast<DAbstractCommand*>(new DCmdDrvRead(this));
        QTest::newRow("write") << static_cast<DAbstractCommand*>(new DCmdDrvWrite(this));
        QTest::newRow("information") << static_cast<DAbstractCommand*>(new DCmdDrvDeviceInfo(this));
    }
    void clearedPointerDeletes()
    {
        QFETCH(DAbstractCommand*, prototype);
        static void (*deleteCommand)(void*) = nullptr;
        static int deleted;
        deleted = 0;
        QSharedPointer<ICommand> made = prototype->createCommand({});
        // The object's table with another entry 4: two words before it, 28 entries.
        void**& table = *reinterpret_cast<void***>(dynamic_cast<DAbstractCommand*>(made.data()));
        std::array<void*, 30> copy;
        std::copy_n(table - 2, copy.size(), copy.begin());
        deleteCommand = reinterpret_cast<void (*)(void*)>(copy[6]);
        copy[6] = reinterpret_cast<void*>(+[](void* command) {
            ++deleted;
            deleteCommand(command);
        });
        table = copy.data() + 2;
        made.clear();
        QCOMPARE(deleted, 1);
    }

    void order()
    {
        QFETCH(int, first);
        QFETCH(QList<int>, found);
        QList<int> consecutive = found;
        std::iota(consecutive.begin(), consecutive.end(), first);
        QCOMPARE(found, consecutive);
    }
};

QTEST_APPLESS_MAIN(TestSlots)
#include "tst_slots.moc"
