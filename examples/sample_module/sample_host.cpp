// A program of one's own on the kit: sample_host MODULE HOST PORT NAME loads the sample module,
// asks a device for one value, and ends.

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_orders.h>
#include <plugin_management/d_plugin_loader.h>

#include <QCoreApplication>

#include <cstdio>
#include <memory>

namespace {

int fail(const QString& why)
{
    qCritical("%s", qPrintable(why));
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_NO_GLIB", "1"); // before the application object
    QCoreApplication application(argc, argv);
    const QStringList words = application.arguments();
    if (words.size() != 5) {
        return fail("usage: sample_host MODULE HOST PORT NAME");
    }
    const DPluginLoader::Result loaded = DPluginLoader::load(words[1]);
    if (!loaded) {
        return fail(loaded.text);
    }
    std::unique_ptr<IPlugin> owner(loaded.root->createInstance(QUuid::createUuid()));
    auto* device = dynamic_cast<DAbstractPlugin*>(owner.get());
    device->setObjectName("gauge1");
    device->initPluginCommands();

    DOrders* orders = device->orders();
    QString refusal;
    const ParameterMap endpoint{{"host", words[2]}, {"port", words[3]}};
    const quint64 connect = orders->start("connect", endpoint, &refusal);
    const quint64 get = orders->start("get", {{"name", words[4]}}, &refusal);
    if (connect == 0 || get == 0) {
        return fail(refusal);
    }
    QObject::connect(orders, &DOrders::sigOrderFinished, &application, [get](const DOrder& order) {
        if (order.id == get) {
            const bool done = order.state == DOrder::State::Done;
            std::puts(qPrintable(done ? order.results["value"].toString() : order.failure.text));
            QCoreApplication::exit(done ? 0 : 1);
        }
    });
    return QCoreApplication::exec();
}
