#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_plugin_loader.h>

#include <QTemporaryFile>
#include <QtTest>

using DPluginLoader::Reason;
Q_DECLARE_METATYPE(DPluginLoader::Reason)

class LoaderTest : public QObject
{
    Q_OBJECT

private slots:
    void refusals_data();
    void refusals();
    void aGoodModuleAfterBadOnes();
};

void LoaderTest::refusals_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<Reason>("reason");
    QTest::addColumn<QString>("says");
    QTest::newRow("no such file") << "/nowhere/libp.so" << Reason::NoSuchFile << "no such file";
    QTest::newRow("a folder") << "/" << Reason::NoSuchFile << "no such file";
    QTest::newRow("no plug-in") << PLAIN_LIBRARY << Reason::NotAPlugin << "not a Qt plug-in";
    QTest::newRow("no library") << __FILE__ << Reason::NotAPlugin << "not a Qt plug-in";
    QTest::newRow("other Qt") << OTHER_QT_MODULE << Reason::OtherQt << "built for Qt 5.99";
    QTest::newRow("other interface")
        << FOREIGN_MODULE << Reason::OtherInterface << "org.example.Painter";
    QTest::newRow("missing symbol")
        << UNLINKED_MODULE << Reason::LoadFailed << "noLibraryHasThisFunction";
    QTest::newRow("no usable object")
        << HOLLOW_MODULE << Reason::NoUsableObject << "not a plug-in object";
}

void LoaderTest::refusals()
{
    QFETCH(QString, file);
    QFETCH(QString, says);
    const DPluginLoader::Result result = DPluginLoader::load(file);
    QVERIFY(!result);
    QVERIFY2(result.text.contains(file) && result.text.contains(says), qPrintable(result.text));
    QTEST(result.reason, "reason");
}

void LoaderTest::aGoodModuleAfterBadOnes()
{
    const DPluginLoader::Result result = DPluginLoader::load(QStringLiteral(GOOD_MODULE));
    QVERIFY2(result, qPrintable(result.text));
    QVERIFY(result.root->objectUuid().isNull());
    const QUuid uuid = QUuid::createUuid();
    const QScopedPointer<IPlugin> object(result.root->createInstance(uuid));
    QCOMPARE(object->objectUuid(), uuid);
    QCOMPARE(object->pluginName(), QStringLiteral("Fixture"));
}

QTEST_APPLESS_MAIN(LoaderTest)

#include "tst_loader.moc"
