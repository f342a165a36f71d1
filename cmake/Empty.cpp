// Something to compile precompiled headers for.
int main()
{
    return 0;
}
