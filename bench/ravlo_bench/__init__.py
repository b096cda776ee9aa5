"""Runs the measuring programs, judges their figures against the bars and shows them. Nothing but the standard library;
only the plots need matplotlib."""
