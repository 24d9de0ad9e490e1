#pragma once

#include "lib/linked_list.h"

using str_list = linked_list<str>;
