// Something to compile the shared headers for.
int main()
{
    return 0;
}
