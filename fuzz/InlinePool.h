// SPDX-License-Identifier: Apache-2.0
#pragma once

// Takes the place of the platform's thread pool: what is posted waits until the program runs it.

// Runs what has been posted, and what is posted meanwhile; or only the first of it.
void runPosted(bool onlyFirst = false);
