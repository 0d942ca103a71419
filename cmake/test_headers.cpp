// SPDX-License-Identifier: Apache-2.0
// Carries the precompiled headers of all test programs. A program and no library: their code is position-independent in
// a way of its own.
int main()
{
    return 0;
}
