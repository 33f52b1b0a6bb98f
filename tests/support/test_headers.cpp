/// Exists so that the precompiled headers of the tests are made by one target.
int main() {
    return 0;
}
