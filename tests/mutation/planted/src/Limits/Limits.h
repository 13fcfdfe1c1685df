#pragma once

bool isAbove(int value, int limit);
bool isBelow(int value, int limit);
int magnitude(int value);
int countDown(int from);
int second();
