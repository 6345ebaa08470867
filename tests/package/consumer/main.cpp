// SPDX-FileCopyrightText: The KVFobLink authors
// SPDX-License-Identifier: Apache-2.0

#include <KVFobLink/KVFobLink.h>

int main() { return KVCommonTool::md5Encrypt("abc").size() == 32 ? 0 : 1; }
