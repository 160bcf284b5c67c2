#include "service/context.h"

#include "stdsoap2.h"

ServiceContext& serviceContext(struct soap* soap) {
  return *static_cast<ServiceContext*>(soap->user);
}
