// Placeholder until this unit is written.
