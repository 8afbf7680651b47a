// Making a merge in the project tree, or writing it out as text.
#include "TLProjectMerge.h"

#include "TLFCPProjectController.h"
#include "TLXMLWriter.h"

#include <string_view>

namespace {

constexpr std::string_view replaceOrAdd = "replaceoradd";

void appendTextElement(pugi::xml_node parent, const char *name, const std::string &text)
{
    pugi::xml_node element = parent.append_child(name);
    if (!text.empty())
        element.append_child(pugi::node_pcdata).set_value(text.c_str());
}

bool isWhitespaceOnly(std::string_view text)
{
    return text.find_first_not_of(" \t\n\r") == std::string_view::npos;
}

} // namespace

// Whitespace beside elements is indentation to a parser, and is gone when
// the file is read again; only whitespace that is all the children element
// holds stays.
bool TLMergedBin::keepsCarriedText() const
{
    if (carriedText.empty())
        return false;
    return !isWhitespaceOnly(carriedText) || (bins.empty() && clips.empty());
}

bool TLMergedBin::hasChildren() const
{
    return !bins.empty() || !clips.empty() || keepsCarriedText();
}

void TLMergedBin::appendTo(pugi::xml_node parent) const
{
    if (parsed) {
        parent.append_copy(parsed->document_element());
        return;
    }
    pugi::xml_node bin = parent.append_child("bin");
    appendTextElement(bin, "uuid", uuid);
    appendTextElement(bin, "updatebehavior", std::string(replaceOrAdd));
    appendTextElement(bin, "name", name);
    pugi::xml_node children = bin.append_child("children");
    for (const TLMergedBin &child : bins)
        child.appendTo(children);
    for (const pugi::xml_node &clip : clips)
        children.append_copy(clip);
    if (keepsCarriedText())
        children.append_child(pugi::node_pcdata).set_value(carriedText.c_str());
}

void TLMergedBin::write(TLXMLWriter &writer, unsigned depth) const
{
    if (parsed) {
        writer.writeNode(parsed->document_element(), depth);
        return;
    }
    writer.openElement("bin", depth);
    writer.textElement("uuid", uuid, depth + 1);
    writer.textElement("updatebehavior", replaceOrAdd, depth + 1);
    writer.textElement("name", name, depth + 1);
    if (!hasChildren()) {
        writer.emptyElement("children", depth + 1);
    } else {
        writer.openElement("children", depth + 1);
        for (const TLMergedBin &child : bins)
            child.write(writer, depth + 2);
        for (const pugi::xml_node &clip : clips)
            writer.writeNode(clip, depth + 2);
        if (keepsCarriedText())
            writer.text(carriedText);
        writer.closeElement("children", depth + 1);
    }
    writer.closeElement("bin", depth);
}

void TLProjectMerge::applyTo(TLFCPProjectController &controller) const
{
    // The bins are made first: their clips may stand inside the bins that
    // are removed.
    if (target) {
        for (const TLMergedBin &bin : bins)
            bin.appendTo(target);
    }
    const auto collected = [&controller] {
        return controller.clips().size() + controller.masterClipPaths().size();
    };
    const std::size_t collectedBefore = collected();
    for (const pugi::xml_node &element : replaced)
        controller.detachNode(element);
    controller.documentDidChange();
    // Clips that stood only in the removed bins now live on as the copies in
    // the new ones; those are what a later save must find.
    if (collected() != collectedBefore)
        controller.collectClipsAndMasterClipPaths();
}
