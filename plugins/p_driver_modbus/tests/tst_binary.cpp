#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_abstract_worker.h>

#include <QtTest>

#include <QLibrary>

// The module as a file: what a host finds in it by the two entry points.
class TestBinary : public QObject
{
    Q_OBJECT

private:
    QLibrary m_module{QStringLiteral(MODULE_FILE)};
    QObject* (*m_instance)() = nullptr;

private slots:
    void initTestCase();
    void metadata();
    void root();
    void instance();
};

void TestBinary::initTestCase()
{
    m_module.setLoadHints(QLibrary::ResolveAllSymbolsHint);
    QVERIFY2(m_module.load(), qPrintable(m_module.errorString()));
    m_instance = reinterpret_cast<QObject* (*)()>(m_module.resolve("qt_plugin_instance"));
    QVERIFY(m_instance != nullptr);
}

void TestBinary::metadata()
{
    auto* query = reinterpret_cast<const char* (*)()>(m_module.resolve("qt_plugin_query_metadata"));
    QVERIFY(query != nullptr);
    const QByteArray block = QByteArray("QTMETADATA !") + QByteArray::fromHex("00050f00 bf 02781c")
        + "fr.vexo.rd.box.PDriverModbus" + QByteArray::fromHex("036d") + "PDriverModbus" + '\xff';
    QCOMPARE(QByteArray(query(), block.size()).toHex(), block.toHex());
}

void TestBinary::root()
{
    QObject* const root = m_instance();
    QCOMPARE(m_instance(), root);
    QCOMPARE(root->metaObject()->className(), "PDriverModbus");
    QVERIFY(root->qt_metacast("PDriverModbus") == root);
    QVERIFY(root->qt_metacast("DAbstractPlugin") == dynamic_cast<DAbstractPlugin*>(root));
    QVERIFY(root->qt_metacast("Elsewhere") == nullptr);
    auto* const plugin = dynamic_cast<IPlugin*>(root);
    QVERIFY(plugin != nullptr && qobject_cast<IPlugin*>(root) == plugin);
    QVERIFY(root->parent() == nullptr && plugin->objectUuid().isNull());

    const QPointer<QObject> guard(root);
    delete root;
    QVERIFY(guard.isNull());
    QObject* const next = m_instance();
    QVERIFY(next != nullptr);
    QCOMPARE(m_instance(), next);
    delete next;
}

void TestBinary::instance()
{
    const std::unique_ptr<QObject> root(m_instance());
    const QUuid uuid = QUuid::createUuid();
    const std::unique_ptr<IPlugin> made(dynamic_cast<IPlugin*>(root.get())->createInstance(uuid));
    auto* const plugin = dynamic_cast<DAbstractPlugin*>(made.get());
    QCOMPARE(made->objectUuid(), uuid);
    QCOMPARE(made->pluginUuid(), QUuid("{f1e5000d-744a-49c0-91f8-2854bc6507eb}"));
    QCOMPARE(made->getProperty("typeName"), QVariant(QString("")));
    plugin->initPluginCommands();
    QCOMPARE(plugin->commandNames().join(' '), "connect listen read write deviceInformation");
    // A command crosses the boundary as its interface and comes back as its base.
    const QSharedPointer<ICommand> command = plugin->command("read")->createCommand({});
    QVERIFY(dynamic_cast<DAbstractCommand*>(command.data()) != nullptr);
    QCOMPARE(plugin->worker()->metaObject()->className(), "DWorkerModbus");
}

QTEST_GUILESS_MAIN(TestBinary)
#include "tst_binary.moc"
