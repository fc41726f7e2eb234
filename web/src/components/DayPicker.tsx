import { dayNames, weekOrder } from '../format';

// The seven day toggles, Monday first, as one labelled group.
export function DayPicker({ days, onChange }: { days: Set<number>; onChange: (days: Set<number>) => void }) {
  return (
    <fieldset class="days">
      <legend>Days</legend>
      {weekOrder.map((d) => (
        <label class="day">
          <input
            type="checkbox"
            checked={days.has(d)}
            onChange={(e) => {
              const next = new Set(days);
              if ((e.target as HTMLInputElement).checked) next.add(d);
              else next.delete(d);
              onChange(next);
            }}
          />
          {dayNames[d - 1]}
        </label>
      ))}
    </fieldset>
  );
}
