bool isForgotten(int value)
{
    return value == 4711;
}
