// Benchmark reference: a Windows program that does nothing, so that the suite can show what
// starting and ending a process under Wine costs by itself.
int main()
{
    return 0;
}
