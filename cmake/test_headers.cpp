// SPDX-License-Identifier: Apache-2.0
// Holds the precompiled headers of all test programs. A program and not a library, because programs are compiled with
// -fPIE and libraries with -fPIC.
int main()
{
    return 0;
}
