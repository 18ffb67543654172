#ifndef VOINET_VOINET_H
#define VOINET_VOINET_H

// Everything that a host process needs. See docs/hosts.md for a walk through.

#include "voinet/HTTPConnection.h"
#include "voinet/INetUtils.h"
#include "voinet/netsessionsink.h"
#include "voinet/proxy_detect.h"
#include "voinet/texts.h"
#include "voinet/transferitf.h"
#include "voinet/transfermonitor.h"
#include "voinet/voinetcreator.h"
#include "voinet/voineterror.h"
#include "voinet/voinetoption.h"
#include "voinet/voinetprotocol.h"
#include "voinet/voitffactory.h"

#endif  // VOINET_VOINET_H
