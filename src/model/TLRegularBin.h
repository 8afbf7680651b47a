// An ordinary, user-named bin that holds other bins.
#pragma once

#include "TLBinNode.h"

// A regular bin has a name, a parent and children (any bin node), and no
// identifier: a fresh one is made each time the tree is written as xmeml.
// A new one has no name, no parent and no children.
class TLRegularBin : public TLBinNode
{
public:
    TLRegularBin() = default;
    static std::shared_ptr<TLRegularBin> create() { return std::make_shared<TLRegularBin>(); }

    TLBinNodeKind kind() const override { return TLBinNodeKind::regularBin; }
};
