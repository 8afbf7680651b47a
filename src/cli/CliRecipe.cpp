// Reading sort recipes from JSON.
#include "CliRecipe.h"

#include "CliNames.h"
#include "CliText.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <span>
#include <sys/stat.h>

namespace {

using Json = nlohmann::json;

// Thrown inside this unit only, caught in readText: one message per recipe.
struct RecipeError
{
    std::string message;
};

[[noreturn]] void fail(std::string message)
{
    throw RecipeError{std::move(message)};
}

std::string stringValue(const Json &value, std::string_view key)
{
    if (!value.is_string())
        fail(CliText::quoted(key) + " must be a text");
    return value.get<std::string>();
}

// A names-table value: a word, a decimal text or a whole JSON number.
std::int64_t numberValue(const Json &value, std::string_view key, std::span<const CliName> table,
                         std::string_view what)
{
    std::optional<std::int64_t> number;
    std::string shown;
    if (value.is_number()) {
        shown = value.dump();
        number = CliNames::numberForText(table, shown);
    } else if (value.is_string()) {
        shown = value.get<std::string>();
        number = CliNames::numberForText(table, shown);
    } else {
        fail(CliText::quoted(key) + " must be a text or a number");
    }
    if (!number)
        fail("unknown " + std::string(what) + " " + CliText::quoted(shown) + " (corvale fields lists them)");
    return *number;
}

CliFilterRow filterValue(const Json &value)
{
    CliFilterRow row;
    std::string failure;
    if (value.is_string()) {
        failure = CliEdit::parseFilter(value.get<std::string>(), row);
    } else if (value.is_object()) {
        for (const auto &[key, part] : value.items()) {
            if (key != "field" && key != "operator" && key != "value")
                fail("a filter has no key " + CliText::quoted(key) + " (field, operator, value)");
        }
        if (!value.contains("field") || !value.contains("operator"))
            fail("a filter needs a \"field\" and an \"operator\"");
        row.filterType = numberValue(value["field"], "field", CliNames::fields(), "filter field");
        row.filterMatch = numberValue(value["operator"], "operator", CliNames::operators(), "filter operator");
        row.filterString = value.contains("value") ? stringValue(value["value"], "value") : std::string();
    } else {
        fail("a filter must be a text such as \"scene contains 12\" or an object");
    }
    if (!failure.empty())
        fail(failure);
    return row;
}

struct Action
{
    std::string_view key;
    CliEdit::Kind kind;
};

constexpr Action kActions[] = {
    {"in", CliEdit::Kind::select},          {"bin", CliEdit::Kind::bin},
    {"range", CliEdit::Kind::range},        {"smart-bin", CliEdit::Kind::smartBin},
    {"smart-range", CliEdit::Kind::smartRange}, {"remove", CliEdit::Kind::remove},
    {"rename", CliEdit::Kind::rename},
};

const Action *actionForKey(std::string_view key)
{
    for (const auto &action : kActions) {
        if (action.key == key)
            return &action;
    }
    return nullptr;
}

bool keyBelongsTo(std::string_view key, CliEdit::Kind kind)
{
    if (key == "match" || key == "filters")
        return kind == CliEdit::Kind::smartBin;
    if (key == "to")
        return kind == CliEdit::Kind::rename;
    return false;
}

const Action &onlyAction(const Json &object)
{
    const Action *found = nullptr;
    for (const auto &[key, value] : object.items()) {
        const Action *action = actionForKey(key);
        if (!action)
            continue;
        if (found)
            fail("an edit has one action, not both " + CliText::quoted(found->key) + " and " + CliText::quoted(key));
        found = action;
    }
    if (!found)
        fail("an edit needs one of \"in\", \"bin\", \"range\", \"smart-bin\", \"smart-range\", \"remove\", \"rename\"");
    for (const auto &[key, value] : object.items()) {
        if (!actionForKey(key) && !keyBelongsTo(key, found->kind))
            fail("unknown key " + CliText::quoted(key) + " in a " + CliText::quoted(found->key) + " edit");
    }
    return *found;
}

void readSmartBin(const Json &object, CliEdit &edit)
{
    if (object.contains("match")) {
        edit.matchType = numberValue(object["match"], "match", CliNames::matchTypes(), "match type");
        edit.hasMatchType = true;
    }
    if (!object.contains("filters"))
        return;
    const Json &filters = object["filters"];
    if (!filters.is_array())
        fail("\"filters\" must be a list");
    for (const auto &filter : filters)
        edit.filters.push_back(filterValue(filter));
}

CliEdit editFromObject(const Json &object)
{
    if (!object.is_object())
        fail("an edit must be an object such as {\"bin\": \"Selects\"}");
    const Action &action = onlyAction(object);
    CliEdit edit;
    edit.kind = action.kind;
    const Json &value = object[std::string(action.key)];
    if (edit.kind == CliEdit::Kind::smartRange)
        edit.criterion = numberValue(value, action.key, CliNames::criteria(), "smart range criterion");
    else
        edit.text = stringValue(value, action.key);
    if (edit.kind == CliEdit::Kind::smartBin)
        readSmartBin(object, edit);
    if (edit.kind == CliEdit::Kind::rename) {
        if (!object.contains("to"))
            fail("a \"rename\" edit needs the new name under \"to\"");
        edit.newName = stringValue(object["to"], "to");
    }
    return edit;
}

std::vector<CliEdit> editsFromDocument(const Json &document, std::string_view name)
{
    if (!document.is_object())
        fail("a recipe is an object with an \"edits\" list");
    for (const auto &[key, value] : document.items()) {
        if (key != "edits" && key != "description")
            fail("unknown key " + CliText::quoted(key) + " (a recipe holds \"edits\" and \"description\")");
    }
    if (document.contains("description") && !document["description"].is_string())
        fail("\"description\" must be a text");
    if (!document.contains("edits") || !document["edits"].is_array())
        fail("a recipe needs an \"edits\" list");
    std::vector<CliEdit> edits;
    std::size_t number = 0;
    for (const auto &object : document["edits"]) {
        ++number;
        const std::string origin = std::string(name) + ", edit " + std::to_string(number);
        try {
            edits.push_back(editFromObject(object));
        } catch (const RecipeError &error) {
            fail("edit " + std::to_string(number) + ": " + error.message);
        }
        edits.back().origin = origin;
    }
    return edits;
}

// nlohmann's messages open with "[json.exception.parse_error.101] ".
std::string parserMessage(const std::exception &error)
{
    std::string message = error.what();
    if (!message.empty() && message.front() == '[') {
        const auto end = message.find("] ");
        if (end != std::string::npos)
            message.erase(0, end + 2);
    }
    return message;
}

} // namespace

std::string CliRecipe::readText(std::string_view text, std::string_view name, std::vector<CliEdit> &edits)
{
    try {
        const Json document = Json::parse(text.begin(), text.end());
        auto read = editsFromDocument(document, name);
        edits.insert(edits.end(), std::make_move_iterator(read.begin()), std::make_move_iterator(read.end()));
        return {};
    } catch (const RecipeError &error) {
        return std::string(name) + ": " + error.message;
    } catch (const Json::exception &error) {
        return std::string(name) + ": not a valid recipe: " + parserMessage(error);
    } catch (const std::exception &error) {
        return std::string(name) + ": cannot read the recipe: " + error.what();
    }
}

std::string CliRecipe::readFile(const std::string &path, std::vector<CliEdit> &edits)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return "cannot read the recipe " + path + ": " + std::strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "cannot read the recipe " + path + ": not a regular file";
    if (static_cast<std::size_t>(status.st_size) > maximumFileSize)
        return "cannot read the recipe " + path + ": larger than 4 MiB";
    std::ifstream stream(path, std::ios::binary);
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    if (!stream || !stream.read(text.data(), static_cast<std::streamsize>(text.size())))
        return "cannot read the recipe " + path;
    return readText(text, path, edits);
}
