// Comparing XML trees in tests: where two trees first differ, in words.
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace test {

// Text with its control characters spelt out, so that a lost carriage
// return shows.
std::string visible(std::string_view text);

// A node's kind, name and value, for messages.
std::string describe(pugi::xml_node node);

// A node's children, updatebehavior elements left out (a save sets them).
std::vector<pugi::xml_node> childrenOf(pugi::xml_node node);

// Where the two trees first differ, updatebehavior elements aside; empty
// when they are equal: node types, names, values and attributes in order,
// a declaration's encoding reading "UTF-8" (what is written) where the
// expected tree names one.
std::string treeDifference(pugi::xml_node expected, pugi::xml_node actual);

} // namespace test
