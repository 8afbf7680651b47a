// Printing the bin tree as text and as JSON.
#include "CliTreePrinter.h"

#include "CliNames.h"
#include "TLBinRangeItem.h"
#include "TLMediaItem.h"
#include "TLSmartBin.h"
#include "TLSmartRangeItem.h"
#include "TLWriteReport.h"

#include <nlohmann/json.hpp>

#include <unordered_set>

namespace {

using Json = nlohmann::ordered_json;

std::string quotedName(std::string_view name)
{
    std::string text = "\"";
    for (const char c : name) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    return text + "\"";
}

// Clips without an identifier cannot be told apart, so each counts as one.
std::size_t distinctClipCount(const TLBinNodePtr &node)
{
    std::unordered_set<std::string> uuids;
    std::size_t withoutUUID = 0;
    for (const auto &child : *node->children()) {
        if (!child || child->kind() != TLBinNodeKind::mediaItem)
            continue;
        if (const auto uuid = child->uuid())
            uuids.insert(*uuid);
        else
            ++withoutUUID;
    }
    return uuids.size() + withoutUUID;
}

// A smart bin of match type "any" lists a clip once per filter it passes,
// and a project sorted before holds copies of its clips in the bins written
// then; the distinct count tells the two apart.
std::string clipsText(const TLBinNodePtr &node)
{
    const std::size_t count = CliTreePrinter::clipCount(node);
    std::string text = std::to_string(count) + (count == 1 ? " clip" : " clips");
    const std::size_t distinct = distinctClipCount(node);
    if (distinct != count)
        text += " (" + std::to_string(distinct) + " distinct)";
    if (const std::size_t withoutUUID = TLWriteReport::clipsWithoutIdentifier(*node))
        text += ", " + std::to_string(withoutUUID) + " without uuid";
    return text;
}

std::string lineForNode(const TLBinNodePtr &node)
{
    std::string line(CliTreePrinter::kindWord(node->kind()));
    line.append(" ").append(quotedName(node->displayName()));
    const auto kind = node->kind();
    if (kind == TLBinNodeKind::smartBin || kind == TLBinNodeKind::smartRangeItem)
        line.append(", ").append(clipsText(node));
    if (node->hasUuid()) {
        const auto uuid = node->uuid();
        line += uuid ? ", uuid " + *uuid : std::string(", no uuid yet");
    }
    return line;
}

void appendText(std::string &text, const TLNodeList &nodes, std::size_t depth, bool withClips)
{
    for (const auto &node : nodes) {
        if (!node || (!withClips && node->kind() == TLBinNodeKind::mediaItem))
            continue;
        text.append(depth * 2, ' ').append(lineForNode(node)).append("\n");
        appendText(text, *node->children(), depth + 1, withClips);
    }
}

Json optionalText(const std::optional<std::string> &value)
{
    return value ? Json(*value) : Json(nullptr);
}

Json filtersJson(const TLSmartBin &bin)
{
    Json filters = Json::array();
    for (const auto &row : *bin.filterArray()) {
        filters.push_back({
            {"field", CliNames::wordForNumber(CliNames::fields(), row->filterType())},
            {"operator", CliNames::wordForNumber(CliNames::operators(), row->filterMatch())},
            {"value", row->filterString()},
        });
    }
    return filters;
}

void addKindFields(Json &object, const TLBinNodePtr &node)
{
    switch (node->kind()) {
    case TLBinNodeKind::binRangeItem: {
        const auto &item = static_cast<const TLBinRangeItem &>(*node);
        object["expression"] = item.rangeExpression();
        object["index"] = item.rangeCurrentIndex();
        object["count"] = item.rangeCount();
        break;
    }
    case TLBinNodeKind::smartBin: {
        const auto &bin = static_cast<const TLSmartBin &>(*node);
        object["match"] = CliNames::wordForNumber(CliNames::matchTypes(), bin.matchType());
        object["filters"] = filtersJson(bin);
        object["clips"] = CliTreePrinter::clipCount(node);
        object["clipsWithoutUUID"] = TLWriteReport::clipsWithoutIdentifier(*node);
        break;
    }
    case TLBinNodeKind::smartRangeItem: {
        const auto &item = static_cast<const TLSmartRangeItem &>(*node);
        object["criterion"] = CliNames::wordForNumber(CliNames::criteria(), item.criteria());
        object["clips"] = CliTreePrinter::clipCount(node);
        object["clipsWithoutUUID"] = TLWriteReport::clipsWithoutIdentifier(*node);
        break;
    }
    case TLBinNodeKind::mediaItem:
        object["path"] = optionalText(static_cast<const TLMediaItem &>(*node).filePath());
        break;
    case TLBinNodeKind::regularBin:
        break;
    }
}

Json nodesJson(const TLNodeList &nodes)
{
    Json array = Json::array();
    for (const auto &node : nodes) {
        if (!node)
            continue;
        Json object = {
            {"kind", CliTreePrinter::kindWord(node->kind())},
            {"name", node->displayName()},
            {"uuid", optionalText(node->uuid())},
        };
        addKindFields(object, node);
        object["children"] = nodesJson(*node->children());
        array.push_back(std::move(object));
    }
    return array;
}

} // namespace

std::string_view CliTreePrinter::kindWord(TLBinNodeKind kind)
{
    switch (kind) {
    case TLBinNodeKind::regularBin:
        return "bin";
    case TLBinNodeKind::binRangeItem:
        return "range";
    case TLBinNodeKind::smartBin:
        return "smart-bin";
    case TLBinNodeKind::smartRangeItem:
        return "smart-range";
    case TLBinNodeKind::mediaItem:
        return "clip";
    }
    return "";
}

std::string CliTreePrinter::text(const TLNodeList &topLevel, bool withClips)
{
    std::string text;
    appendText(text, topLevel, 0, withClips);
    return text.empty() ? std::string("(no bins)\n") : text;
}

std::string CliTreePrinter::json(const TLNodeList &topLevel)
{
    return nodesJson(topLevel).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::size_t CliTreePrinter::clipCount(const TLBinNodePtr &node)
{
    if (!node)
        return 0;
    std::size_t count = 0;
    for (const auto &child : *node->children()) {
        if (child && child->kind() == TLBinNodeKind::mediaItem)
            ++count;
    }
    return count;
}
