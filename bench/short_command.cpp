// The shortest of commands: linked statically, it has ended as soon as it has begun.

int main() {
    return 0;
}
