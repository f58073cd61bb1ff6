// Nothing of what this lists for such processors matters here.
