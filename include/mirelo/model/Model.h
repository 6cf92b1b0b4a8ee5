// The message model in one include: requests, responses, the media message
// and media objects, scene data and jump targets, and the size limits.
#pragma once

#include "mirelo/model/Base.h"
#include "mirelo/model/Limits.h"
#include "mirelo/model/MediaMessage.h"
#include "mirelo/model/Requests.h"
#include "mirelo/model/Responses.h"
