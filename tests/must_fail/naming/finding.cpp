// Nothing but its name is wrong.
int AnswerOf(int question) {
    return question + 42;
}
