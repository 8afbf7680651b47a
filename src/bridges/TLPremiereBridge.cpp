// The Premiere Pro bridge the application uses by default.
#include "TLPremiereBridge.h"

#include "TLPremiereEventsBridge.h"

std::shared_ptr<TLPremiereBridge> TLPremiereBridge::standard()
{
    return std::make_shared<TLPremiereEventsBridge>();
}
