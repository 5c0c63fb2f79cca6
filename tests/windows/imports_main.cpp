// SPDX-License-Identifier: GPL-2.0-or-later
// A program of nothing but the library, so that its imports can be looked at.
int main() { return 0; }
