#pragma once

#define MACH_PORT_NULL 0

typedef struct {
  unsigned int val[8];
} audit_token_t;
