// Counts the process's calls of malloc and all its kin that give memory (operator new included).
// Under a sanitizer, which brings its own heap, nothing is counted.
#pragma once

long heap_calls();
bool heap_is_counted();
