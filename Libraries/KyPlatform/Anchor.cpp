// Keeps the library non-empty until the first contract is built.
