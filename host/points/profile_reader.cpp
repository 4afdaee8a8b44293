#include <points/json_node.h>
#include <points/profile.h>

#include <QJsonDocument>

#include <algorithm>
#include <initializer_list>
#include <limits>

namespace Points {

namespace {

using Use = CommandProfile::Use;

constexpr int longestMs = 24 * 60 * 60 * 1000;
constexpr int formVersion = 1;

QStringList words(std::initializer_list<const char*> list)
{
    QStringList result;
    for (const char* word : list) {
        result.append(QLatin1String(word));
    }
    return result;
}

QString optionalText(const JsonNode& node) { return node.isThere() ? node.text() : QString(); }

Access readAccess(const JsonNode& node)
{
    node.only(words({"kind", "limit", "rawOnly"}));
    Access access;
    access.kind = node.at("kind").text();
    access.limit = node.at("limit").number(1, Table::size);
    access.rawOnly = node.at("rawOnly").isThere() && node.at("rawOnly").flag();
    return access;
}

QString readDigit(const JsonNode& node)
{
    QString digit = optionalText(node);
    if (node.isThere() && (digit.size() != 1 || !digit.at(0).isDigit())) {
        node.refuse(QStringLiteral("is not one digit"));
    }
    return digit;
}

Table readTable(const JsonNode& node)
{
    node.only(words({"name", "aliases", "description", "item", "digit", "read", "write"}));
    Table table;
    table.name = node.at("name").text();
    table.description = node.at("description").text();
    table.holdsBits = node.at("item").choice(words({"word", "bit"})) == 1;
    table.digit = readDigit(node.at("digit"));
    for (const JsonNode& alias : node.at("aliases").items()) {
        table.aliases.append(alias.text());
    }
    if (node.at("read").isThere()) {
        table.read = readAccess(node.at("read"));
    }
    for (const JsonNode& access : node.at("write").items()) {
        table.writes.push_back(readAccess(access));
    }
    std::stable_sort(table.writes.begin(), table.writes.end(),
                     [](const Access& a, const Access& b) { return a.limit < b.limit; });
    return table;
}

void readRange(const JsonNode& node, ParameterProfile& parameter)
{
    if (!node.isThere()) {
        return;
    }
    const auto ends = node.items();
    if (ends.size() != 2) {
        node.refuse(QStringLiteral("is not two numbers, the least and the most"));
        return;
    }
    constexpr int most = std::numeric_limits<int>::max();
    parameter.least = ends[0].number(-most, most);
    parameter.most = ends[1].number(*parameter.least, most);
}

ParameterProfile readParameter(const JsonNode& node)
{
    node.only(words({"description", "role", "words", "range", "empty", "declared"}));
    ParameterProfile parameter;
    parameter.description = node.at("description").text();
    if (node.at("role").isThere()) {
        const auto roles = words({"address", "count", "kind", "data", "host"});
        parameter.role = Role(1 + node.at("role").choice(roles));
    }
    for (const JsonNode& word : node.at("words").items()) {
        parameter.words.append(word.text());
    }
    readRange(node.at("range"), parameter);
    parameter.mayBeEmpty = !node.at("empty").isThere() || node.at("empty").flag();
    parameter.isDeclared = !node.at("declared").isThere() || node.at("declared").flag();
    return parameter;
}

Confirmation readConfirmation(const JsonNode& node)
{
    node.only(words({"result", "value", "otherwise"}));
    return {node.at("result").text(), node.at("value").list(), node.at("otherwise").text()};
}

void readUse(const JsonNode& node, CommandProfile& command)
{
    if (node.at("use").isThere()) {
        command.use = Use(1 + node.at("use").choice(words({"read", "write"})));
    }
    command.once = optionalText(node.at("once"));
    if (!command.once.isEmpty()) {
        command.intervalMs = node.at("interval").number(1, longestMs);
    }
    if (command.use == Use::Read) {
        command.values = node.at("values").text();
    }
    if (node.at("confirmed").isThere()) {
        command.confirmed = readConfirmation(node.at("confirmed"));
    }
}

CommandProfile readCommand(const JsonNode& node)
{
    node.only(words({"description", "use", "once", "interval", "values", "parameters", "results",
                     "confirmed", "examples"}));
    CommandProfile command;
    command.description = node.at("description").text();
    readUse(node, command);
    for (const JsonNode& example : node.at("examples").items()) {
        command.examples.append(example.text());
    }
    for (const QString& name : node.at("parameters").keys()) {
        command.parameters.insert(name, readParameter(node.at("parameters").member(name)));
    }
    for (const QString& name : node.at("results").keys()) {
        command.results.insert(name, node.at("results").member(name).text());
    }
    return command;
}

Hint readHint(const JsonNode& node)
{
    node.only(words({"failure", "exception", "text"}));
    const QStringList failures = words({"device_exception", "timeout", "keep_alive_lost"});
    Hint hint;
    hint.failure = failures.at(node.at("failure").choice(failures));
    hint.exception = node.at("exception").isThere() ? node.at("exception").number(1, 255) : 0;
    hint.text = node.at("text").text();
    return hint;
}

// The words of the parameter "kind" are those of the tables.
QStringList kindsOf(const Profile& profile, Use use)
{
    QStringList kinds;
    for (const Table& table : profile.tables) {
        if (use == Use::Read && table.read) {
            kinds.append(table.read->kind);
        }
        for (const Access& access : table.writes) {
            kinds.append(use == Use::Write ? QStringList(access.kind) : QStringList());
        }
    }
    return kinds;
}

void checkCommand(const JsonNode& node, const Profile& profile, const CommandProfile& command)
{
    const auto needed = command.use == Use::Read
        ? std::vector<std::pair<Role, const char*>>{{Role::Address, "address"},
                                                    {Role::Kind, "kind"},
                                                    {Role::Count, "count"}}
        : std::vector<std::pair<Role, const char*>>{
            {Role::Address, "address"}, {Role::Kind, "kind"}, {Role::Data, "data"}};
    for (const auto& [role, name] : needed) {
        if (command.use != Use::None && command.parameterOf(role).isEmpty()) {
            node.refuse(QStringLiteral("has no parameter with the role ") + QLatin1String(name));
        }
    }
    const CommandProfile* once = profile.command(command.once);
    if (!command.once.isEmpty() && (once == nullptr || once->use != Use::Read)) {
        node.at("once").refuse(QStringLiteral("names no command of the use read"));
    }
}

// No name, and no old number, stands for two tables.
void checkTables(const JsonNode& node, const Profile& profile)
{
    QStringList names;
    for (const Table& table : profile.tables) {
        names += table.aliases;
        names += {table.name};
        names += table.digit.isEmpty() ? QStringList() : QStringList(table.digit);
    }
    if (names.removeDuplicates() > 0) {
        node.refuse(QStringLiteral("have a name, an alias or a digit in common"));
    }
}

void finish(const JsonNode& root, Profile& profile)
{
    checkTables(root.at("tables"), profile);
    for (auto it = profile.commands.begin(); it != profile.commands.end(); ++it) {
        const QString kind = it->parameterOf(Role::Kind);
        if (!kind.isEmpty()) {
            it->parameters[kind].words = kindsOf(profile, it->use);
        }
        checkCommand(root.at("commands").member(it.key()), profile, *it);
    }
}

void read(const JsonNode& root, Profile& profile)
{
    root.only(words({"profile", "tables", "commands", "hints", "absentTable"}));
    root.at("profile").number(formVersion, formVersion);
    for (const JsonNode& table : root.at("tables").items()) {
        profile.tables.push_back(readTable(table));
    }
    for (const QString& name : root.at("commands").keys()) {
        profile.commands.insert(name, readCommand(root.at("commands").member(name)));
    }
    for (const JsonNode& hint : root.at("hints").items()) {
        profile.hints.push_back(readHint(hint));
    }
    for (const JsonNode& code : root.at("absentTable").items()) {
        profile.absentTable.append(code.number(1, 255));
    }
    finish(root, profile);
}

} // namespace

ProfileReading profileFrom(const QByteArray& json)
{
    ProfileReading reading;
    QJsonParseError parsing{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parsing);
    if (parsing.error != QJsonParseError::NoError) {
        reading.error =
            QStringLiteral("at byte %1: %2").arg(parsing.offset).arg(parsing.errorString());
        return reading;
    }
    const QJsonValue root =
        document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    read(JsonNode(root, QString(), &reading.error), reading.profile);
    if (!reading.error.isEmpty()) {
        reading.profile = Profile();
    }
    return reading;
}

} // namespace Points
