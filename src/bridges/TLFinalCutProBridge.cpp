// The Final Cut Pro bridge the application uses by default.
#include "TLFinalCutProBridge.h"

#include "TLAppleEventsBridge.h"

std::shared_ptr<TLFinalCutProBridge> TLFinalCutProBridge::standard()
{
    return std::make_shared<TLAppleEventsBridge>();
}
